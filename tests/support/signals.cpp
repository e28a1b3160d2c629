#include "tests/support/signals.h"

#include <cmath>
#include <random>

namespace orvel_test {

std::vector<int16_t> speechLike(int rate, double seconds, unsigned seed) {
  constexpr double kTwoPi = 6.283185307179586;
  std::mt19937 engine(seed);
  std::vector<int16_t> samples(static_cast<size_t>(rate * seconds));
  double phase = 0.0;
  for (size_t i = 0; i < samples.size(); ++i) {
    const double t = static_cast<double>(i) / rate;
    phase += kTwoPi * (140.0 + 40.0 * std::sin(kTwoPi * 0.9 * t)) / rate;
    double voice = 0.0;
    for (int harmonic = 1; harmonic <= 12; ++harmonic) {
      voice += std::sin(harmonic * phase + 0.3 * harmonic) / harmonic;
    }
    // 160 ms syllables; every third one is missing, so that gates and averages have work.
    const double place = t / 0.16 - std::floor(t / 0.16);
    const bool pause = static_cast<int>(t / 0.16) % 3 == 2;
    const double level = pause ? 0.0 : 5500.0 * std::pow(std::sin(kTwoPi * place / 2.0), 2);
    const double noise = 2.0 * (static_cast<double>(engine()) / 4294967295.0) - 1.0;
    samples[i] = static_cast<int16_t>(level * voice + 400.0 * noise);
  }
  return samples;
}

std::vector<float> pulse(int rate, double seconds, int centre) {
  std::vector<float> samples(static_cast<size_t>(rate * seconds));
  for (size_t i = 0; i < samples.size(); ++i) {
    const double t = (static_cast<double>(i) - centre) / rate / 0.0004;
    samples[i] = static_cast<float>(0.5 * std::exp(-0.5 * t * t));
  }
  return samples;
}

std::vector<float> toFloat(const std::vector<int16_t>& samples) {
  std::vector<float> result(samples.size());
  for (size_t i = 0; i < samples.size(); ++i)
    result[i] = static_cast<float>(samples[i]) / 32768.0F;
  return result;
}

}  // namespace orvel_test
