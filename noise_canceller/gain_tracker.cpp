#include "noise_canceller/gain_tracker.h"

#include <cmath>

#include "utils/mean_energy.h"

namespace ORVEL::NOISE_CANCELLER {

namespace {

constexpr double kBuffersPerSecond = 100.0;
constexpr double kDecaySeconds = 3.0;
constexpr double kAttackSeconds = 1.0;
constexpr double kReferenceAmplitude = 2000.0;
constexpr double kFloorEnergy = 100.0 * 100.0;
constexpr double kRiseRatio = 2.0;
constexpr double kLeastAmplitude = 1e-7;

double coefficient(double seconds) { return std::pow(0.01, 1.0 / (seconds * kBuffersPerSecond)); }

}  // namespace

GainTracker::GainTracker()
    : attack_(coefficient(kAttackSeconds)),
      decay_(coefficient(kDecaySeconds)),
      level_(kReferenceAmplitude * kReferenceAmplitude) {}

float GainTracker::update(const float* samples, std::size_t count) {
  const double energy = UTILS::frameEnergy(samples, count);
  if (energy < kFloorEnergy) {
    level_ *= decay_;
  } else if (energy <= kRiseRatio * level_) {
    level_ = attack_ * level_ + (1.0 - attack_) * energy;
  } else {
    level_ = attack_ * energy + (1.0 - attack_) * level_;
  }
  return static_cast<float>(kReferenceAmplitude / (std::sqrt(level_) + kLeastAmplitude));
}

}  // namespace ORVEL::NOISE_CANCELLER
