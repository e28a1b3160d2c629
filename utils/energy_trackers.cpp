#include "utils/energy_trackers.h"

#include <algorithm>
#include <array>
#include <numeric>

namespace ORVEL::UTILS {

double frameEnergy(const float* samples, std::size_t count) {
  // Several sums at once: additions to a single one would wait for each other.
  std::array<double, 8> sums{};
  std::size_t i = 0;
  for (; i + sums.size() <= count; i += sums.size()) {
    for (std::size_t lane = 0; lane < sums.size(); ++lane) {
      const double sample = samples[i + lane];
      sums[lane] += sample * sample;
    }
  }
  double sum = std::accumulate(sums.begin(), sums.end(), 0.0);
  for (; i < count; ++i) {
    const double sample = samples[i];
    sum += sample * sample;
  }
  return sum / static_cast<double>(count);
}

MeanEnergy::MeanEnergy(std::uint32_t shortLength, std::uint32_t longLength, float reference,
                       float initialEnergy)
    : shortLength_(shortLength),
      longLength_(longLength),
      reference_(reference),
      initialEnergy_(initialEnergy),
      shortQueue_(shortLength, shortLength, 0.0),
      longQueue_(longLength, 1, initialEnergy),
      longSum_(initialEnergy) {}

void MeanEnergy::reset() {
  shortQueue_.reset(shortLength_, 0.0);
  longQueue_.reset(1, initialEnergy_);
  shortSum_ = 0.0;
  longSum_ = initialEnergy_;
}

float MeanEnergy::update(const float* samples, std::size_t count) {
  const double energy = frameEnergy(samples, count);
  const double share = energy / static_cast<double>(shortLength_);
  shortSum_ = shortSum_ + share - shortQueue_.exchange(share);
  if (reference_ <= shortSum_) {
    if (longQueue_.size() < longLength_) {
      longSum_ += energy;
      longQueue_.push(energy);
    } else {
      longSum_ = longSum_ + energy - longQueue_.exchange(energy);
    }
  }
  return static_cast<float>(longSum_ / static_cast<double>(longQueue_.size()));
}

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

void EnThreshold::reset() {
  shortQueue_.reset(shortLength_, 0.0);
  longQueue_.reset(longLength_, 0.0);
  shortSum_ = 0.0;
  longSum_ = 0.0;
  loudCount_ = 0;
  factor_ = 1.0;
}

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
