#include "noise_canceller/network_input.h"

#include <string>

#include "noise_canceller/weight_reader.h"

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

}  // namespace ORVEL::NOISE_CANCELLER
