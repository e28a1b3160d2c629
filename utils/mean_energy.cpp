#include "utils/mean_energy.h"

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
      shortQueue_(shortLength, shortLength, 0.0),
      longQueue_(longLength, 1, initialEnergy),
      longSum_(initialEnergy) {}

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

}  // namespace ORVEL::UTILS
