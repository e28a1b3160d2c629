#pragma once

#if defined(__SSE2__) || defined(_M_X64)
#include <xmmintrin.h>
#endif

#include "utils/non_copyable.h"

namespace ORVEL::UTILS {

/**
 * Takes denormal numbers as zero while it lives and restores the thread's mode afterwards: a stream
 * that fades out would otherwise cost many times as much per frame.
 */
class DenormalGuard : private NonCopyMovable {
 public:
#if defined(__SSE2__) || defined(_M_X64)
  DenormalGuard() : saved_(_mm_getcsr()) { _mm_setcsr(saved_ | kFlushToZero | kDenormalsAreZero); }
  ~DenormalGuard() { _mm_setcsr(saved_); }

 private:
  static constexpr unsigned kFlushToZero = 0x8000U;
  static constexpr unsigned kDenormalsAreZero = 0x0040U;
  unsigned saved_;
#endif
};

}  // namespace ORVEL::UTILS
