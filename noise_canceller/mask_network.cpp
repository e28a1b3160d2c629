#include "noise_canceller/mask_network.h"

#include <mkl_vml.h>

#include <algorithm>
#include <string>
#include <utility>

#include "noise_canceller/vector_functions.h"

namespace ORVEL::NOISE_CANCELLER {

namespace {

const std::vector<float>& perElement(const WeightReader& weights, const char* list, std::size_t i,
                                     std::size_t width) {
  const auto& vectors = weights.vectors(list);
  const std::size_t length = i < vectors.size() ? vectors[i].size() : 0;
  requireSize(std::string(list) + "[" + std::to_string(i) + "]", length, "the width of its layer",
              width);
  return vectors[i];
}

MaskNetworkWeights::Layer hiddenLayer(const WeightReader& weights, std::size_t i,
                                      std::size_t inputs, bool scaled) {
  const AffinePart nonLinear = affinePart(weights, "WeightNonLinear", "BaesNonLinear", i);
  const AffinePart linear = affinePart(weights, "WeightLinear", "BaesLinear", i);
  const std::size_t width = nonLinear.bias.size();
  requireSize(linear.biasName, linear.bias.size(), "the length of " + nonLinear.biasName, width);
  MaskNetworkWeights::Layer layer{AffineBank(inputs, {nonLinear, linear}), {}, {}};
  if (scaled) {
    layer.multiplier = perElement(weights, "HeadenMultiplier", i, width);
    layer.reducer = perElement(weights, "HeadenReducer", i, width);
  }
  return layer;
}

}  // namespace

MaskNetworkWeights MaskNetworkWeights::read(const WeightReader& weights, std::size_t inputs,
                                            std::size_t outputs, bool scaled) {
  const std::size_t layerCount = weights.matrices("WeightLinear").size();
  if (layerCount == 0) {
    refuseWeights("WeightLinear has 0 elements, the least allowed is 1");
  }
  MaskNetworkWeights result;
  std::size_t width = inputs;
  for (std::size_t i = 0; i + 1 < layerCount; ++i) {
    result.layers.push_back(hiddenLayer(weights, i, width, scaled));
    width = result.layers.back().bank.outputs() / 2;
  }
  const AffinePart last = affinePart(weights, "WeightNonLinear", "BaesNonLinear", layerCount - 1);
  requireSize("the network's output " + last.biasName, last.bias.size(), "the mask's length",
              outputs);
  result.layers.push_back({AffineBank(width, {last}), {}, {}});
  return result;
}

MaskNetwork::MaskNetwork(std::shared_ptr<const MaskNetworkWeights> weights)
    : weights_(std::move(weights)) {
  std::size_t widest = 0;
  for (const auto& layer : weights_->layers) {
    widest = std::max(widest, layer.bank.outputs());
  }
  branches_.resize(widest);
  hidden_.resize(widest);
}

void MaskNetwork::evaluate(const float* input, float* output) {
  const float* x = input;
  const std::size_t hiddenLayers = weights_->layers.size() - 1;
  for (std::size_t i = 0; i < hiddenLayers; ++i) {
    const auto& layer = weights_->layers[i];
    const std::size_t width = layer.bank.outputs() / 2;
    layer.bank.apply(x, branches_.data());
    addRectified(branches_.data(), branches_.data() + width, hidden_.data(), width);
    if (!layer.multiplier.empty()) {
      const auto count = static_cast<MKL_INT>(width);
      vsMul(count, hidden_.data(), layer.multiplier.data(), hidden_.data());
      vsSub(count, hidden_.data(), layer.reducer.data(), hidden_.data());
    }
    x = hidden_.data();
  }
  const AffineBank& last = weights_->layers.back().bank;
  last.apply(x, output);
  sigmoids(output, output, last.outputs());
}

}  // namespace ORVEL::NOISE_CANCELLER
