#include "noise_canceller/noise_average.h"

#include <cmath>
#include <string>

namespace ORVEL::NOISE_CANCELLER {

namespace {

// Four minutes of full-band frames: keeps a hostile count from exhausting memory.
constexpr std::size_t kMostValues = std::size_t{1} << 22;

std::size_t checkedValues(std::size_t width, std::size_t frameCount) {
  if (frameCount > kMostValues / width) {
    refuseWeights("NATFrameCount is " + std::to_string(frameCount) + ", the most allowed for " +
                  std::to_string(width) + " bins is " + std::to_string(kMostValues / width));
  }
  return width * frameCount;
}

}  // namespace

NoiseAverage::NoiseAverage(const FrameParameters& frame, std::size_t frameCount)
    : begin_(frame.bandBegin),
      frameCount_(frameCount),
      sum_(frame.bandWidth(), 0.0F),
      frames_(checkedValues(frame.bandWidth(), frameCount), 0.0F) {}

void NoiseAverage::update(const Spectrum& spectrum, const std::vector<float>& gains) {
  float* slot = frames_.data() + oldest_ * sum_.size();
  const auto divisor = static_cast<float>(frameCount_);
  for (std::size_t k = 0; k < sum_.size(); ++k) {
    const std::complex<float> removed = spectrum[begin_ + k] * (1.0F - gains[begin_ + k]);
    const float magnitude = std::hypot(removed.real(), removed.imag());
    const auto value = static_cast<float>(std::log(static_cast<double>(magnitude) + 1.0));
    sum_[k] -= slot[k];
    slot[k] = value / divisor;
    sum_[k] += slot[k];
  }
  oldest_ = (oldest_ + 1) % frameCount_;
}

}  // namespace ORVEL::NOISE_CANCELLER
