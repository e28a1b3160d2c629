#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace ORVEL::PLUGINS {

/** Delays one channel by a whole number of samples. */
class DelayLine {
 public:
  explicit DelayLine(std::size_t delay) : ring_(delay, 0.0F) {}

  /** Takes `count` samples and gives as many older ones; may work in place. Real-time safe. */
  void process(const float* in, float* out, std::size_t count) noexcept {
    if (ring_.empty()) {
      std::copy_n(in, in == out ? 0 : count, out);
      return;
    }
    for (std::size_t i = 0; i < count; ++i) {
      const float sample = in[i];
      out[i] = ring_[at_];
      ring_[at_] = sample;
      at_ = at_ + 1 == ring_.size() ? 0 : at_ + 1;
    }
  }
  void reset() noexcept { std::fill(ring_.begin(), ring_.end(), 0.0F); }

 private:
  std::vector<float> ring_;
  std::size_t at_ = 0;
};

}  // namespace ORVEL::PLUGINS
