#include "tests/safety/guard.h"

#include <dlfcn.h>

#include "tests/safety/guard_state.h"

namespace orvel_test {
namespace {

struct Place {
  const void* address;
};

std::ostream& operator<<(std::ostream& out, const Place& place) {
  Dl_info info{};
  if (place.address == nullptr || dladdr(place.address, &info) == 0) return out << "?";
  out << info.dli_fname << "+0x" << std::hex
      << static_cast<const char*>(place.address) - static_cast<const char*>(info.dli_fbase)
      << std::dec;
  return info.dli_sname == nullptr ? out : out << " (near " << info.dli_sname << ")";
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const Misdeeds& misdeeds) {
  out << misdeeds.heapCalls << " heap calls";
  if (misdeeds.heapCalls > 0) out << ", first from " << Place{misdeeds.firstHeapCaller};
  out << "; " << misdeeds.locks << " locks";
  if (misdeeds.locks > 0) out << ", first from " << Place{misdeeds.firstLockCaller};
  out << "; " << misdeeds.systemCalls << " system calls";
  if (misdeeds.systemCalls > 0) out << ", first number " << misdeeds.firstSystemCall;
  return out;
}

void beginWatch() {
  guardState().misdeeds = {};
  guardState().watching = true;
}

Misdeeds endWatch() {
  guardState().watching = false;
  return guardState().misdeeds;
}

}  // namespace orvel_test
