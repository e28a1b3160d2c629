// The program's heap functions: glibc's, with a count for watched threads and a tally of live bytes.
#include <malloc.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>

#include "tests/safety/guard.h"
#include "tests/support/replaced.h"

namespace {

using orvel_test::guardState;

std::atomic<bool> tallying{false};
std::atomic<long> liveBytes{0};
std::atomic<long> peakBytes{0};

void note() {
  if (guardState().watching) ++guardState().misdeeds.heapCalls;
}

void tally(long bytes) {
  const long now = liveBytes.fetch_add(bytes) + bytes;
  long peak = peakBytes.load();
  while (now > peak && !peakBytes.compare_exchange_weak(peak, now)) {
  }
}

void* taken(void* block) {
  if (tallying.load(std::memory_order_relaxed)) tally(static_cast<long>(malloc_usable_size(block)));
  return block;
}

void given(void* block) {
  if (tallying.load(std::memory_order_relaxed))
    tally(-static_cast<long>(malloc_usable_size(block)));
}

}  // namespace

ORVEL_REPLACES void* malloc(std::size_t size) {
  note();
  return taken(__libc_malloc(size));
}
ORVEL_REPLACES void* calloc(std::size_t count, std::size_t size) {
  note();
  return taken(__libc_calloc(count, size));
}
ORVEL_REPLACES void* realloc(void* block, std::size_t size) {
  note();
  given(block);
  return taken(__libc_realloc(block, size));
}
ORVEL_REPLACES void free(void* block) {
  if (block == nullptr) return;
  note();
  given(block);
  __libc_free(block);
}
ORVEL_REPLACES void* memalign(std::size_t alignment, std::size_t size) {
  note();
  return taken(__libc_memalign(alignment, size));
}
ORVEL_REPLACES void* aligned_alloc(std::size_t alignment, std::size_t size) {
  return memalign(alignment, size);
}
ORVEL_REPLACES int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
  *block = memalign(alignment, size);
  return *block == nullptr ? ENOMEM : 0;
}

namespace orvel_test {

std::size_t peakHeapOf(const std::function<void()>& body) {
  liveBytes = 0;
  peakBytes = 0;
  tallying = true;
  body();
  tallying = false;
  return static_cast<std::size_t>(peakBytes.load());
}

}  // namespace orvel_test
