#include "noise_canceller/noise_average.h"

#include <string>

#include "noise_canceller/vector_functions.h"

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
      removed_(frame.bandWidth(), 0.0F),
      frames_(checkedValues(frame.bandWidth(), frameCount), 0.0F) {}

void NoiseAverage::update(const Spectrum& spectrum, const std::vector<float>& gains) {
  float* slot = frames_.data() + oldest_ * sum_.size();
  const auto divisor = static_cast<float>(frameCount_);
  for (std::size_t k = 0; k < sum_.size(); ++k) {
    removed_[k] = static_cast<float>(powerOf(spectrum[begin_ + k] * (1.0F - gains[begin_ + k])));
  }
  squareRoots(removed_.data(), removed_.data(), removed_.size());
  logarithms(removed_.data(), 1.0, 1.0, removed_.data(), removed_.size());
  for (std::size_t k = 0; k < sum_.size(); ++k) {
    const float share = removed_[k] / divisor;
    sum_[k] = sum_[k] - slot[k] + share;
    slot[k] = share;
  }
  oldest_ = (oldest_ + 1) % frameCount_;
}

}  // namespace ORVEL::NOISE_CANCELLER
