#pragma once

#include "utils/non_copyable.h"

namespace ORVEL::UTILS {

/**
 * One pointer for each thread, null until it is set. What is left when a thread ends is destroyed; the slot
 * itself stays. Not a thread_local: without memory for its destructor the program ends.
 */
class ThreadSlot : private NonCopyMovable {
 public:
  using Destroy = void (*)(void*);
  explicit ThreadSlot(Destroy destroy) noexcept;

  void* get() const noexcept;
  /** False for want of memory; nothing is set then. */
  bool set(void* value) const noexcept;

 private:
  unsigned long key_ = 0;
  bool made_;
};

}  // namespace ORVEL::UTILS
