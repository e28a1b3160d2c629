// The peak of the heap as AddressSanitizer sees it: its allocator has hooks, but cannot be replaced.
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "tests/safety/guard.h"

// From sanitizer/allocator_interface.h, which GCC's library has and its headers lack.
extern "C" {
std::size_t __sanitizer_get_allocated_size(const volatile void* pointer);
int __sanitizer_install_malloc_and_free_hooks(void (*onMalloc)(const volatile void*, std::size_t),
                                              void (*onFree)(const volatile void*));
}

namespace {

std::atomic<std::ptrdiff_t> held{0};
std::atomic<std::ptrdiff_t> peak{0};

void onMalloc(const volatile void* /*pointer*/, std::size_t size) {
  const std::ptrdiff_t now = held += static_cast<std::ptrdiff_t>(size);
  std::ptrdiff_t most = peak;
  while (most < now && !peak.compare_exchange_weak(most, now)) {
  }
}

void onFree(const volatile void* pointer) {
  if (pointer != nullptr) {
    held -= static_cast<std::ptrdiff_t>(__sanitizer_get_allocated_size(pointer));
  }
}

}  // namespace

namespace orvel_test {

std::size_t peakHeapOf(const std::function<void()>& body) {
  static const bool installed = __sanitizer_install_malloc_and_free_hooks(onMalloc, onFree) != 0;
  held = 0;
  peak = 0;
  body();
  return installed ? static_cast<std::size_t>(peak.load()) : SIZE_MAX;
}

}  // namespace orvel_test
