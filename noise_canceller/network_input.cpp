#include "noise_canceller/network_input.h"

#include <algorithm>
#include <string>

#include "noise_canceller/weight_parameters.h"
#include "utils/arithmetic.h"

namespace ORVEL::NOISE_CANCELLER {

namespace {

constexpr std::size_t kHistorySpans = 5;

std::vector<float> perInput(const std::vector<float>& values, std::size_t inputs) {
  std::vector<float> result(inputs);
  for (std::size_t i = 0; i < inputs; ++i) {
    result[i] = values[i % values.size()];
  }
  return result;
}

void checkStatistics(std::size_t inputs, const std::vector<float>& means,
                     const std::vector<float>& deviations, NetworkInput::Statistics statistics) {
  requireSize("the length of SD", deviations.size(), "the length of MU", means.size());
  if (statistics == NetworkInput::Statistics::kPerInput) {
    requireSize("the length of MU", means.size(), "the length of the network's input", inputs);
  }
  if (means.empty()) {
    refuseWeights("the length of MU is 0, the least allowed is 1");
  }
}

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

NetworkInput::NetworkInput(std::size_t features, std::size_t frames, std::size_t appended,
                           const std::vector<float>& means, const std::vector<float>& deviations,
                           Statistics statistics)
    : features_(features), historyLength_(features * frames), history_(0) {
  const std::size_t inputs = historyLength_ + appended;
  checkStatistics(inputs, means, deviations, statistics);
  means_ = perInput(means, inputs);
  deviations_ = perInput(deviations, inputs);
  input_.resize(inputs);
  history_ = UTILS::SlidingBuffer(features * (frames + 1) * kHistorySpans);
  history_.appendZeros(historyLength_);
}

void NetworkInput::reset() {
  history_.clear();
  history_.appendZeros(historyLength_);
}

float* NetworkInput::nextFrame() {
  history_.advance(features_);
  return history_.extend(features_);
}

const float* NetworkInput::normalised(const float* appended) {
  const float* history = history_.data();
  for (std::size_t i = 0; i < historyLength_; ++i) {
    input_[i] = (history[i] - means_[i]) / deviations_[i];
  }
  for (std::size_t i = historyLength_; i < input_.size(); ++i) {
    input_[i] = (appended[i - historyLength_] - means_[i]) / deviations_[i];
  }
  return input_.data();
}

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
  UTILS::squareRoots(removed_.data(), removed_.data(), removed_.size());
  UTILS::logarithms(removed_.data(), 1.0, 1.0, removed_.data(), removed_.size());
  for (std::size_t k = 0; k < sum_.size(); ++k) {
    const float share = removed_[k] / divisor;
    sum_[k] = sum_[k] - slot[k] + share;
    slot[k] = share;
  }
  oldest_ = (oldest_ + 1) % frameCount_;
}

void NoiseAverage::reset() {
  oldest_ = 0;
  std::fill(sum_.begin(), sum_.end(), 0.0F);
  std::fill(frames_.begin(), frames_.end(), 0.0F);
}

}  // namespace ORVEL::NOISE_CANCELLER
