// Counts what real-time code must not do: heap calls, locks and system calls of one thread while a
// body runs. The counters sit in this program's own malloc, free, pthread_mutex_lock and so on, which
// the dynamic linker also gives to the shared libraries, and in a system-call filter.
#pragma once

#include <cstddef>
#include <functional>
#include <ostream>

namespace orvel_test {

struct Misdeeds {
  unsigned long heapCalls = 0;
  unsigned long locks = 0;
  unsigned long systemCalls = 0;
  long firstSystemCall = -1;

  bool none() const { return heapCalls == 0 && locks == 0 && systemCalls == 0; }
};
inline std::ostream& operator<<(std::ostream& out, const Misdeeds& misdeeds) {
  return out << misdeeds.heapCalls << " heap calls, " << misdeeds.locks << " locks, "
             << misdeeds.systemCalls << " system calls, first number " << misdeeds.firstSystemCall;
}

// What the counting functions and the filter share: plain numbers of the program itself, so that
// touching them allocates nothing.
struct GuardState {
  bool watching = false;
  Misdeeds misdeeds;
};
inline GuardState& guardState() {
  thread_local GuardState state;
  return state;
}

// What the calling thread did while the body ran. System calls are seen on watched threads only.
template <class Body>
Misdeeds misdeedsOf(Body&& body) {
  guardState() = {.watching = true, .misdeeds = {}};
  body();
  guardState().watching = false;
  return guardState().misdeeds;
}

// Runs the body on a new thread whose system calls are counted; false, without running it, where
// the kernel offers no filter.
bool onWatchedThread(const std::function<void()>& body);

// Highest number of bytes that the body, whatever thread it uses, had on the heap beyond those there
// before.
std::size_t peakHeapOf(const std::function<void()>& body);

// Keeps the compiler from dropping an allocation that nothing uses.
inline void keep(void* pointer) { asm volatile("" : : "r"(pointer) : "memory"); }

}  // namespace orvel_test
