// For programs that put functions of their own in front of the C library's: how those are seen by the shared
// libraries, and what is behind them.
#pragma once

#include <dlfcn.h>

#include <cstddef>

#define ORVEL_REPLACES extern "C" __attribute__((visibility("default")))

extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);
void __libc_free(void*);
}

namespace orvel_test {

// The function behind the program's own; its address is kept in `cache`, which is no static variable with a
// guard: that may itself take a lock.
template <class Function>
Function* original(void*& cache, const char* name) {
  void* known = __atomic_load_n(&cache, __ATOMIC_ACQUIRE);
  if (known == nullptr) {
    known = dlsym(RTLD_NEXT, name);
    __atomic_store_n(&cache, known, __ATOMIC_RELEASE);
  }
  return reinterpret_cast<Function*>(known);
}

}  // namespace orvel_test
