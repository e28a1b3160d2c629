// The program's locking functions: those of the C library, with a count for watched threads.
#include <dlfcn.h>
#include <pthread.h>

#include "tests/safety/guard.h"

namespace {

void note() {
  auto& state = orvel_test::guardState();
  if (state.watching) ++state.misdeeds.locks;
}

// Looked up without a static variable's guard, which may itself take a lock.
template <class Function>
Function* original(void*& cache, const char* name) {
  void* known = __atomic_load_n(&cache, __ATOMIC_ACQUIRE);
  if (known == nullptr) {
    known = dlsym(RTLD_NEXT, name);
    __atomic_store_n(&cache, known, __ATOMIC_RELEASE);
  }
  return reinterpret_cast<Function*>(known);
}

}  // namespace

#define COUNTED_LOCK(name, type)                                           \
  extern "C" __attribute__((visibility("default"))) int name(type* lock) { \
    static void* cache = nullptr;                                          \
    note();                                                                \
    return original<int(type*)>(cache, #name)(lock);                       \
  }

COUNTED_LOCK(pthread_mutex_lock, pthread_mutex_t)
COUNTED_LOCK(pthread_mutex_trylock, pthread_mutex_t)
COUNTED_LOCK(pthread_rwlock_rdlock, pthread_rwlock_t)
COUNTED_LOCK(pthread_rwlock_wrlock, pthread_rwlock_t)
COUNTED_LOCK(pthread_spin_lock, pthread_spinlock_t)
