// A host of WebAssembly: one thread, no fork, no signal, no locale, and standard error where the host gives one.
#include <cstdio>
#include <cstdlib>

#include "utils/c_numbers.h"
#include "utils/call_scope.h"
#include "utils/error_line.h"

namespace ORVEL::UTILS {

void writeErrorLine(std::initializer_list<std::string_view> parts) noexcept {
  for (const std::string_view part : parts) {
    std::fwrite(part.data(), 1, part.size(), stderr);
  }
}

double realNumberIn(const char* text) { return std::strtod(text, nullptr); }
long long wholeNumberIn(const char* text) { return std::strtoll(text, nullptr, 10); }

ForkBarrier::ForkBarrier() noexcept = default;
// NOLINTNEXTLINE(performance-trivially-destructible): it does something elsewhere
ForkBarrier::~ForkBarrier() = default;

}  // namespace ORVEL::UTILS
