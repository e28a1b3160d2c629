#include "noise_canceller/recurrent_network.h"

#include <algorithm>
#include <string>
#include <utility>

#include "noise_canceller/vector_functions.h"

namespace ORVEL::NOISE_CANCELLER {

namespace {

using Output = RecurrentNetworkWeights::Output;

std::size_t readLayerCount(const WeightReader& weights, Output output) {
  const char* list = output == Output::kLinear ? "WeightLinear" : "WeightNonLinear";
  const std::size_t count = weights.matrices(list).size();
  if (count == 0) {
    refuseWeights(std::string(list) + " has 0 elements, the least allowed is 1");
  }
  return count;
}

std::size_t readStateLength(const WeightReader& weights) {
  const auto& matrices = weights.matrices("WeightNonLinear");
  if (matrices.empty()) {
    refuseWeights("WeightNonLinear has 0 elements, the least allowed is 1");
  }
  return matrices.back().dim0;
}

std::vector<AffinePart> hiddenParts(const WeightReader& weights, std::size_t i) {
  std::vector<AffinePart> parts{affinePart(weights, "WeightNonLinear", "BaesNonLinear", i),
                                affinePart(weights, "WeightLinear", "BaesLinear", i)};
  requireSize(parts[1].biasName, parts[1].bias.size(), "the length of " + parts[0].biasName,
              parts[0].bias.size());
  return parts;
}

AffinePart gatePart(const WeightReader& weights, std::size_t stateLength) {
  AffinePart gate = affinePart(weights, "WeightGRU", "BaesGRU", 0);
  if (gate.bias.size() != 1) {
    requireSize(gate.biasName, gate.bias.size(), "the state's length", stateLength);
  }
  return gate;
}

}  // namespace

RecurrentNetworkWeights RecurrentNetworkWeights::read(const WeightReader& weights,
                                                      std::size_t inputs, Output output) {
  const std::size_t layerCount = readLayerCount(weights, output);
  RecurrentNetworkWeights result{
      .layers = {},
      .inputs = inputs,
      .stateLength = readStateLength(weights),
      .gateLength = 0,
      .output = output,
  };
  std::size_t width = result.stateLength + inputs;
  for (std::size_t i = 0; i + 1 < layerCount; ++i) {
    std::vector<AffinePart> parts = hiddenParts(weights, i);
    const std::size_t layerWidth = parts.front().bias.size();
    if (i == 0) {
      requireSize("the first layer's " + parts[0].biasName, layerWidth,
                  "the state's length (rows of the last WeightNonLinear)", result.stateLength);
      parts.push_back(gatePart(weights, result.stateLength));
      result.gateLength = parts.back().bias.size();
    }
    result.layers.emplace_back(width, parts);
    width = layerWidth;
  }
  const AffinePart last =
      output == Output::kLinear
          ? affinePart(weights, "WeightLinear", "BaesLinear", layerCount - 1)
          : affinePart(weights, "WeightNonLinear", "BaesNonLinear", layerCount - 1);
  result.layers.emplace_back(width, std::vector<AffinePart>{last});
  return result;
}

RecurrentNetwork::RecurrentNetwork(std::shared_ptr<const RecurrentNetworkWeights> weights)
    : weights_(std::move(weights)), stateAndInput_(weights_->stateLength + weights_->inputs, 0.0F) {
  std::size_t widest = 0;
  for (const AffineBank& layer : weights_->layers) {
    widest = std::max(widest, layer.outputs());
  }
  branches_.resize(widest);
  hidden_.resize(widest);
}

void RecurrentNetwork::resetState() {
  std::fill_n(stateAndInput_.begin(), weights_->stateLength, 0.0F);
}

void RecurrentNetwork::updateState(const float* y, float* gate) {
  sigmoids(gate, gate, weights_->gateLength);
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

void RecurrentNetwork::evaluate(const float* input, float* output) {
  std::copy_n(input, weights_->inputs,
              stateAndInput_.begin() + static_cast<std::ptrdiff_t>(weights_->stateLength));
  const float* x = stateAndInput_.data();
  const std::size_t hiddenLayers = weights_->layers.size() - 1;
  for (std::size_t i = 0; i < hiddenLayers; ++i) {
    const AffineBank& layer = weights_->layers[i];
    const std::size_t gateLength = i == 0 ? weights_->gateLength : 0;
    const std::size_t width = (layer.outputs() - gateLength) / 2;
    layer.apply(x, branches_.data());
    addRectified(branches_.data(), branches_.data() + width, hidden_.data(), width);
    if (i == 0) {
      updateState(hidden_.data(), branches_.data() + 2 * width);
    }
    x = hidden_.data();
  }
  const AffineBank& last = weights_->layers.back();
  last.apply(x, output);
  if (weights_->output == Output::kSigmoidMask) {
    sigmoids(output, output, last.outputs());
  }
}

}  // namespace ORVEL::NOISE_CANCELLER
