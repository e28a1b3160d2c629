#pragma once

#include "utils/floating_point_mode.h"
#include "utils/non_copyable.h"

namespace ORVEL::UTILS {

/**
 * Held by a thread while it is in a function of the library that may lock, which those for frames do not: a
 * fork waits until no thread is, so that no lock is held in the child.
 */
class ForkBarrier : private NonCopyMovable {
 public:
  ForkBarrier() noexcept;
  ~ForkBarrier();
};

/** Surrounds every call that does not process a frame. */
struct CallScope {
  ForkBarrier barrier;
  FloatingPointMode mode{FloatingPointMode::Denormals::kKept};
};

}  // namespace ORVEL::UTILS
