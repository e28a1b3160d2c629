#pragma once

#include <cstdint>

#if defined(__SSE2__)
#include <xmmintrin.h>
#endif

#include "utils/non_copyable.h"

namespace ORVEL::UTILS {

/**
 * Gives the thread the library's own floating-point mode while it lives, whatever mode the host has set,
 * and restores the host's afterwards with its flags: rounding to nearest and no traps; in frames denormal
 * numbers count as zero, since a stream that fades out would otherwise cost many times as much per frame.
 */
class FloatingPointMode : private NonCopyMovable {
 public:
  enum class Denormals { kKept, kZero };

#if defined(__SSE2__)
  explicit FloatingPointMode(Denormals denormals) : saved_(_mm_getcsr()) {
    constexpr unsigned kAllMasked = 0x1F80U;
    constexpr unsigned kFlushToZero = 0x8000U;
    constexpr unsigned kDenormalsAreZero = 0x0040U;
    _mm_setcsr(denormals == Denormals::kZero ? kAllMasked | kFlushToZero | kDenormalsAreZero
                                             : kAllMasked);
  }
  ~FloatingPointMode() { _mm_setcsr(saved_); }

 private:
  unsigned saved_;
#elif defined(__aarch64__)
  explicit FloatingPointMode(Denormals denormals) {
    constexpr std::uint64_t kFlushToZero = std::uint64_t{1} << 24U;
    asm volatile("mrs %0, fpcr\n\tmrs %1, fpsr" : "=r"(savedMode_), "=r"(savedFlags_));
    set(denormals == Denormals::kZero ? kFlushToZero : 0, savedFlags_);
  }
  ~FloatingPointMode() { set(savedMode_, savedFlags_); }

 private:
  static void set(std::uint64_t mode, std::uint64_t flags) {
    asm volatile("msr fpcr, %0\n\tmsr fpsr, %1" : : "r"(mode), "r"(flags));
  }
  std::uint64_t savedMode_ = 0;
  std::uint64_t savedFlags_ = 0;
#elif defined(__wasm__)
  // Rounds to nearest, never traps, keeps denormal numbers: nothing can be set.
  explicit FloatingPointMode(Denormals /*denormals*/) {}
  ~FloatingPointMode() {}  // NOLINT(modernize-use-equals-default): used, though it does nothing
#else
#error "the floating-point mode of this processor is not known"
#endif
};

}  // namespace ORVEL::UTILS
