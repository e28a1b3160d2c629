#include "tools/fractional_delay.h"

#include <cmath>
#include <numbers>
#include <numeric>

namespace ORVEL::TOOLS {
namespace {

constexpr std::size_t kTaps = 2 * FractionalDelay::kWholeDelay + 1;

double sinc(double x) {
  const double angle = std::numbers::pi * x;
  return std::abs(x) < 1e-9 ? 1.0 : std::sin(angle) / angle;
}

// Blackman window around 0 that ends one sample beyond the outermost tap.
double window(double x) {
  const double phase =
      std::numbers::pi * x / (static_cast<double>(FractionalDelay::kWholeDelay) + 1.0);
  return 0.42 + 0.5 * std::cos(phase) + 0.08 * std::cos(2.0 * phase);
}

}  // namespace

FractionalDelay::FractionalDelay(double delay) : taps_(kTaps), history_(kTaps - 1, 0.0F) {
  std::vector<double> taps(kTaps);
  for (std::size_t i = 0; i < kTaps; ++i) {
    const double x = static_cast<double>(i) - static_cast<double>(kWholeDelay) - delay;
    taps[i] = sinc(x) * window(x);
  }
  const double sum = std::accumulate(taps.begin(), taps.end(), 0.0);
  for (std::size_t i = 0; i < kTaps; ++i)
    taps_[i] = static_cast<float>(taps[i] / sum);
}

void FractionalDelay::process(std::span<float> samples) {
  history_.insert(history_.end(), samples.begin(), samples.end());
  for (std::size_t n = 0; n < samples.size(); ++n) {
    float sum = 0.0F;
    for (std::size_t i = 0; i < kTaps; ++i)
      sum += taps_[i] * history_[n + kTaps - 1 - i];
    samples[n] = sum;
  }
  history_.erase(history_.begin(), history_.begin() + static_cast<std::ptrdiff_t>(samples.size()));
}

}  // namespace ORVEL::TOOLS
