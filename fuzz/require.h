// Ends the program, so that the fuzzer keeps the input, when something that must hold does not.
#pragma once

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

namespace orvel_fuzz {

inline void require(bool holds, std::string_view what) {
  if (holds) return;
  const std::string_view parts[] = {"does not hold: ", what, "\n"};
  for (const std::string_view part : parts) {
    if (write(2, part.data(), part.size()) < 0) break;
  }
  std::abort();
}

inline std::string_view text(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

}  // namespace orvel_fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
