#include "utils/call_scope.h"

#include <pthread.h>

#include "utils/static_tls.h"

namespace ORVEL::UTILS {

namespace {

// A fork that waits goes first: otherwise threads that open one session after the other could keep it
// waiting. A thread that is inside already does not lock again, so it cannot wait for the fork.
pthread_rwlock_t barrier = PTHREAD_RWLOCK_WRITER_NONRECURSIVE_INITIALIZER_NP;
ORVEL_STATIC_TLS constinit thread_local unsigned depth = 0;

// A message handler may fork: its thread is inside, and keeps others from nothing.
void beforeFork() {
  if (depth == 0) {
    pthread_rwlock_wrlock(&barrier);
  }
}
void inParent() {
  if (depth == 0) {
    pthread_rwlock_unlock(&barrier);
  }
}
void inChild() {
  barrier = PTHREAD_RWLOCK_WRITER_NONRECURSIVE_INITIALIZER_NP;
  if (depth > 0) {
    pthread_rwlock_rdlock(&barrier);
  }
}

[[maybe_unused]] const int registered = pthread_atfork(beforeFork, inParent, inChild);

}  // namespace

ForkBarrier::ForkBarrier() noexcept {
  if (depth++ == 0) {
    pthread_rwlock_rdlock(&barrier);
  }
}

ForkBarrier::~ForkBarrier() {
  if (--depth == 0) {
    pthread_rwlock_unlock(&barrier);
  }
}

}  // namespace ORVEL::UTILS
