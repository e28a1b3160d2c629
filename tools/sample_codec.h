#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace ORVEL::TOOLS {

/** A sample that arithmetic can be done with: not a number becomes 0, absurd levels a loud one. */
inline float tame(float x) {
  constexpr float kLoudest = 16.0F;
  return std::isfinite(x) ? std::clamp(x, -kLoudest, kLoudest) : 0.0F;
}

/** Integer sample, left-justified in 32 bits, to full scale +/-1. */
inline float fromInt32(std::int32_t x) {
  return static_cast<float>(static_cast<double>(x) * 0x1p-31);
}

/** The nearest integer sample of that many bits, left-justified in 32; clips. The inverse of fromInt32. */
inline std::int32_t toInt32(float x, int bits) {
  const double scale = std::ldexp(1.0, bits - 1);
  const double value =
      std::clamp(std::nearbyint(static_cast<double>(x) * scale), -scale, scale - 1.0);
  return static_cast<std::int32_t>(static_cast<std::int64_t>(value) *
                                   (std::int64_t{1} << (32 - bits)));
}

}  // namespace ORVEL::TOOLS
