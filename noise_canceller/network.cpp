#include "noise_canceller/network.h"

#include <algorithm>
#include <array>
#include <utility>

#include "utils/arithmetic.h"

namespace ORVEL::NOISE_CANCELLER {

namespace {

// Linear branch plus the rectified non-linear branch, both `count` values.
void addRectified(const float* nonLinear, const float* linear, float* y, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    // Without a branch, whose outcome nothing could predict.
    const float rectified = nonLinear[i] >= 0.0F ? nonLinear[i] : 0.0F;
    y[i] = linear[i] + rectified;
  }
}

}  // namespace

Network::Network(std::shared_ptr<const NetworkWeights> weights) : weights_(std::move(weights)) {
  if (weights_->stateLength > 0) {
    stateAndInput_.assign(weights_->stateLength + weights_->inputs, 0.0F);
  }
  std::size_t widest = 0;
  for (const auto& layer : weights_->layers) {
    widest = std::max(widest, layer.bank.outputs());
  }
  branches_.resize(widest);
  hidden_.resize(widest);
}

void Network::reset() { std::fill(stateAndInput_.begin(), stateAndInput_.end(), 0.0F); }

bool Network::isFinite() const {
  return UTILS::allFinite(stateAndInput_.data(), weights_->stateLength);
}

void Network::updateState(const float* y, float* gate) {
  UTILS::logistic(gate, gate, weights_->gateLength);
  float* state = stateAndInput_.data();
  const auto blend = [&](std::size_t i, float z) { state[i] = (1.0F - z) * state[i] + z * y[i]; };
  if (weights_->gateLength == 1) {
    for (std::size_t i = 0; i < weights_->stateLength; ++i) {
      blend(i, gate[0]);
    }
  } else {
    for (std::size_t i = 0; i < weights_->stateLength; ++i) {
      blend(i, gate[i]);
    }
  }
}

// What the first layer reads.
const float* Network::firstInput(const float* input) {
  if (stateAndInput_.empty()) {
    return input;
  }
  std::copy_n(input, weights_->inputs,
              stateAndInput_.begin() + static_cast<std::ptrdiff_t>(weights_->stateLength));
  return stateAndInput_.data();
}

// From a hidden layer's branches to its output, which the next layer reads.
const float* Network::finishHidden(std::size_t i) {
  const NetworkWeights::Layer& layer = weights_->layers[i];
  const std::size_t gateLength = i == 0 ? weights_->gateLength : 0;
  const std::size_t width = (layer.bank.outputs() - gateLength) / 2;
  addRectified(branches_.data(), branches_.data() + width, hidden_.data(), width);
  if (!layer.multiplier.empty()) {
    UTILS::multiply(hidden_.data(), layer.multiplier.data(), hidden_.data(), width);
    UTILS::subtract(hidden_.data(), layer.reducer.data(), hidden_.data(), width);
  }
  if (gateLength > 0) {
    updateState(hidden_.data(), branches_.data() + 2 * width);
  }
  return hidden_.data();
}

void Network::evaluate(const float* input, float* output) {
  const Task task{this, input, output};
  evaluate(std::span(&task, 1));
}

void Network::evaluate(std::span<const Task> tasks) {
  const NetworkWeights& weights = *tasks.front().weights();
  std::array<const float*, kMostTogether> x;
  std::array<float*, kMostTogether> y;
  for (std::size_t t = 0; t < tasks.size(); ++t) {
    x[t] = tasks[t].network->firstInput(tasks[t].input);
    y[t] = tasks[t].network->branches_.data();
  }
  for (std::size_t i = 0; i + 1 < weights.layers.size(); ++i) {
    weights.layers[i].bank.apply(tasks.size(), x.data(), y.data());
    for (std::size_t t = 0; t < tasks.size(); ++t) {
      x[t] = tasks[t].network->finishHidden(i);
    }
  }
  for (std::size_t t = 0; t < tasks.size(); ++t) {
    y[t] = tasks[t].output;
  }
  const AffineBank& last = weights.layers.back().bank;
  last.apply(tasks.size(), x.data(), y.data());
  if (weights.output == NetworkWeights::Output::kSigmoid) {
    for (const Task& task : tasks) {
      UTILS::logistic(task.output, task.output, last.outputs());
    }
  }
}

}  // namespace ORVEL::NOISE_CANCELLER
