#include "noise_canceller/vad_features.h"

#include <cmath>

#include "utils/energy_trackers.h"

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

// A spectrum of 8n + 1 bins keeps one more single bin, so that the octaves come out even.
constexpr std::size_t kExtraSingle = kVadBins % 8 == 1 ? 1 : 0;
constexpr std::size_t kOctave = kVadBins / 4;
constexpr std::size_t kSingles = kOctave + kExtraSingle;

float power(std::complex<float> bin) { return bin.real() * bin.real() + bin.imag() * bin.imag(); }

}  // namespace

AutomaticGain::AutomaticGain()
    : attack_(coefficient(kAttackSeconds)),
      decay_(coefficient(kDecaySeconds)),
      level_(kReferenceAmplitude * kReferenceAmplitude) {}

void AutomaticGain::reset() { level_ = kReferenceAmplitude * kReferenceAmplitude; }

float AutomaticGain::update(const float* samples, std::size_t count) {
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

void computeVadFeatures(const std::vector<std::complex<float>>& spectrum,
                        std::array<float, kVadFeatures>& features) {
  std::size_t band = 0;
  std::size_t width = 1;
  std::size_t octave = kOctave;
  for (std::size_t bin = 0; bin < kVadBins; bin += width) {
    if (bin == kSingles) {
      width = 2;
    } else if (bin - kExtraSingle == 2 * octave && bin > kSingles) {
      width *= 2;
      octave *= 2;
    }
    float sum = 0.0F;
    for (std::size_t i = 0; i < width; ++i) {
      sum += power(spectrum[bin + i]);
    }
    const float mean = sum / static_cast<float>(width);
    features[band++] = static_cast<float>(std::log(static_cast<double>(mean) + 1.0));
  }
}

}  // namespace ORVEL::NOISE_CANCELLER
