#include "utils/en_threshold.h"

#include <algorithm>

#include "utils/mean_energy.h"

namespace ORVEL::UTILS {

namespace {
// The gate is open from 1/15 of the loud frames' mean energy up and closed from 1/80 down.
constexpr double kOpenDivisor = 15.0;
constexpr double kClosedDivisor = 80.0;
}  // namespace

EnThreshold::EnThreshold(std::uint32_t shortLength, std::uint32_t longLength, double reference)
    : shortLength_(shortLength),
      longLength_(longLength),
      reference_(reference),
      shortQueue_(shortLength, shortLength, 0.0),
      longQueue_(longLength, longLength, 0.0) {}

void EnThreshold::measure(const float* samples, std::size_t count) {
  const double energy = frameEnergy(samples, count);
  const double share = energy / static_cast<double>(shortLength_);
  shortSum_ = shortSum_ + share - shortQueue_.exchange(share);
  if (share >= reference_) {
    loudCount_ = std::min(loudCount_ + 1, longLength_);
    longSum_ = longSum_ + energy - longQueue_.exchange(energy);
  }
  if (loudCount_ == 0) {
    factor_ = 1.0;
    return;
  }
  const double open = longSum_ / (kOpenDivisor * loudCount_);
  const double closed = longSum_ / (kClosedDivisor * loudCount_);
  if (shortSum_ >= open) {
    factor_ = 1.0;
  } else if (shortSum_ <= closed) {
    factor_ = 0.0;
  } else {
    const double position = (shortSum_ - closed) / (open - closed);
    factor_ = position * position;
  }
}

void EnThreshold::apply(float* gains, std::size_t count) const {
  if (factor_ == 1.0) {
    return;
  }
  const auto scale = static_cast<float>(factor_);
  for (std::size_t i = 0; i < count; ++i) {
    gains[i] = factor_ == 0.0 ? 0.0F : gains[i] * scale;
  }
}

}  // namespace ORVEL::UTILS
