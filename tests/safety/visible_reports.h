// Lets a sanitizer report to the standard error that the program began with, also while a test
// has redirected it.
#pragma once

#include <unistd.h>

#include <cstdint>

extern "C" __attribute__((weak)) void __sanitizer_set_report_fd(void* descriptor);

namespace orvel_test {

inline const bool reportsAreVisible = [] {
  if (__sanitizer_set_report_fd == nullptr) return false;
  __sanitizer_set_report_fd(reinterpret_cast<void*>(static_cast<std::intptr_t>(dup(2))));
  return true;
}();

}  // namespace orvel_test
