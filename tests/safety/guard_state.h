// What the counting functions and the filter share. Plain thread-local numbers of the program itself:
// touching them allocates nothing.
#pragma once

#include "tests/safety/guard.h"

namespace orvel_test {

struct GuardState {
  bool watching = false;
  Misdeeds misdeeds;
};

inline GuardState& guardState() {
  thread_local GuardState state;
  return state;
}

}  // namespace orvel_test
