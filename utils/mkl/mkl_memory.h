#pragma once

#include <mutex>

#include "utils/non_copyable.h"

namespace ORVEL::UTILS {

/** Lets MKL take its memory through the functions behind MklMemory; before any other call of MKL. */
void redirectMklMemory();

/**
 * MKL crashes, or chooses slower kernels that round differently, when it gets no memory for a transform.
 * While this lives, what the heap does not give to the calling thread's calls of MKL comes from a reserve,
 * and the maker of the transform finds that out and gives it up again. One thread at a time; the others
 * wait.
 */
class MklMemory : private NonCopyMovable {
 public:
  MklMemory();
  ~MklMemory();

  /** Whether memory came from the reserve: whatever holds it must be freed before this ends. */
  bool ranOut() const;

 private:
  std::lock_guard<std::mutex> lock_;
};

}  // namespace ORVEL::UTILS
