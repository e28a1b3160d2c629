// What targets share: a check whose failure ends the program, so that the fuzzer keeps the input, and files
// in memory.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
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

// A regular file that lives in memory only, for code that takes a path.
class MemoryFile {
 public:
  MemoryFile() : descriptor_(memfd_create("fuzz", 0)) {}
  explicit MemoryFile(std::string_view bytes) : MemoryFile() { write(bytes); }
  ~MemoryFile() { close(descriptor_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  // Replaces the content.
  void write(std::string_view bytes) const {
    if (ftruncate(descriptor_, 0) != 0 ||
        pwrite(descriptor_, bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
      __builtin_trap();
    }
  }
  int descriptor() const { return descriptor_; }
  std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

 private:
  int descriptor_;
};

}  // namespace orvel_fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
