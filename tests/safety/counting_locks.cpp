// The program's locking functions: those of the C library, with a count for watched threads.
#include <pthread.h>

#include "tests/safety/guard.h"
#include "tests/support/replaced.h"

namespace {

void note() {
  auto& state = orvel_test::guardState();
  if (state.watching) ++state.misdeeds.locks;
}

}  // namespace

#define COUNTED_LOCK(name, type)                                 \
  ORVEL_REPLACES int name(type* lock) {                          \
    static void* cache = nullptr;                                \
    note();                                                      \
    return orvel_test::original<int(type*)>(cache, #name)(lock); \
  }

COUNTED_LOCK(pthread_mutex_lock, pthread_mutex_t)
COUNTED_LOCK(pthread_mutex_trylock, pthread_mutex_t)
COUNTED_LOCK(pthread_rwlock_rdlock, pthread_rwlock_t)
COUNTED_LOCK(pthread_rwlock_wrlock, pthread_rwlock_t)
COUNTED_LOCK(pthread_spin_lock, pthread_spinlock_t)
