#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

/** Conversions between the caller's samples and floats in 16-bit scale. */
namespace ORVEL {

inline constexpr float kFullScale = 32768.0F;
inline constexpr float kHighestSample = 32767.0F;

inline void toFrame(const std::int16_t* input, std::size_t count, std::vector<float>& frame) {
  frame.assign(input, input + count);
}

/** Samples that are no finite numbers become 0: one of them would stay in a filter or state. */
inline void toFrame(const float* input, std::size_t count, std::vector<float>& frame) {
  constexpr float kMost = std::numeric_limits<float>::max();
  frame.resize(count);
  for (std::size_t i = 0; i < count; ++i) {
    frame[i] = std::isfinite(input[i]) ? std::clamp(input[i] * kFullScale, -kMost, kMost) : 0.0F;
  }
}

/** Limits the samples to what 16 bits hold; what is not a number becomes 0. */
inline void clampFrame(std::vector<float>& frame) {
  for (float& sample : frame) {
    sample = std::isnan(sample) ? 0.0F : std::clamp(sample, -kFullScale, kHighestSample);
  }
}

/** Writes the first `count` samples of the frame. */
inline void fromFrame(const std::vector<float>& frame, std::int16_t* output, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    output[i] = static_cast<std::int16_t>(frame[i]);
  }
}

inline void fromFrame(const std::vector<float>& frame, float* output, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    output[i] = frame[i] * (1.0F / kFullScale);
  }
}

}  // namespace ORVEL
