#include "noise_canceller/network_weights.h"

#include <algorithm>

namespace ORVEL::NOISE_CANCELLER {

namespace {

std::string element(const char* list, std::size_t i) {
  return std::string(list) + "[" + std::to_string(i) + "]";
}

template <class List>
void requireElement(const List& list, const char* name, std::size_t i) {
  if (list.size() <= i) {
    refuseWeights(std::string(name) + " has " + std::to_string(list.size()) +
                  " elements, the network needs at least " + std::to_string(i + 1));
  }
}

void checkPart(std::size_t inputs, const AffinePart& part) {
  const CONTAINERS::Matrix& matrix = part.matrix;
  requireSize(part.matrixName + " rows", matrix.dim0, "the length of its input", inputs);
  requireSize(part.matrixName + " columns", matrix.dim1, "the length of " + part.biasName,
              part.bias.size());
  requireSize(part.matrixName + " elements", matrix.data.size(), "rows x columns",
              std::size_t{matrix.dim0} * matrix.dim1);
  if (part.bias.empty()) {
    refuseWeights(part.biasName + " is empty, the least allowed is 1");
  }
}

// Element i of a list of matrices and of a list of biases; refuses a list that is too short.
AffinePart affinePart(const WeightParameters& weights, const char* matrixList, const char* biasList,
                      std::size_t i) {
  const auto& matrices = weights.matrices(matrixList);
  const auto& biases = weights.vectors(biasList);
  requireElement(matrices, matrixList, i);
  requireElement(biases, biasList, i);
  return {matrices[i], biases[i], element(matrixList, i), element(biasList, i)};
}

const std::vector<float>& perElement(const WeightParameters& weights, const char* list,
                                     std::size_t i, std::size_t width) {
  const auto& vectors = weights.vectors(list);
  const std::size_t length = i < vectors.size() ? vectors[i].size() : 0;
  requireSize(std::string(list) + "[" + std::to_string(i) + "]", length, "the width of its layer",
              width);
  return vectors[i];
}

NetworkWeights::Layer feedForwardLayer(const WeightParameters& weights, std::size_t i,
                                       std::size_t inputs, bool scaled) {
  const AffinePart nonLinear = affinePart(weights, "WeightNonLinear", "BaesNonLinear", i);
  const AffinePart linear = affinePart(weights, "WeightLinear", "BaesLinear", i);
  const std::size_t width = nonLinear.bias.size();
  requireSize(linear.biasName, linear.bias.size(), "the length of " + nonLinear.biasName, width);
  NetworkWeights::Layer layer{AffineBank(inputs, {nonLinear, linear})};
  if (scaled) {
    layer.multiplier = perElement(weights, "HeadenMultiplier", i, width);
    layer.reducer = perElement(weights, "HeadenReducer", i, width);
  }
  return layer;
}

NetworkWeights readFeedForward(const WeightParameters& weights, std::size_t inputs,
                               std::size_t outputs, bool scaled) {
  const std::size_t layerCount = weights.matrices("WeightLinear").size();
  if (layerCount == 0) {
    refuseWeights("WeightLinear has 0 elements, the least allowed is 1");
  }
  NetworkWeights result{.layers = {}, .inputs = inputs};
  std::size_t width = inputs;
  for (std::size_t i = 0; i + 1 < layerCount; ++i) {
    result.layers.push_back(feedForwardLayer(weights, i, width, scaled));
    width = result.layers.back().bank.outputs() / 2;
  }
  const AffinePart last = affinePart(weights, "WeightNonLinear", "BaesNonLinear", layerCount - 1);
  requireSize("the network's output " + last.biasName, last.bias.size(), "the mask's length",
              outputs);
  result.layers.push_back({AffineBank(width, {last})});
  return result;
}

std::size_t readLayerCount(const WeightParameters& weights, NetworkWeights::Output output) {
  const char* list = output == NetworkWeights::Output::kLinear ? "WeightLinear" : "WeightNonLinear";
  const std::size_t count = weights.matrices(list).size();
  if (count == 0) {
    refuseWeights(std::string(list) + " has 0 elements, the least allowed is 1");
  }
  return count;
}

std::size_t readStateLength(const WeightParameters& weights) {
  const auto& matrices = weights.matrices("WeightNonLinear");
  if (matrices.empty()) {
    refuseWeights("WeightNonLinear has 0 elements, the least allowed is 1");
  }
  return matrices.back().dim0;
}

std::vector<AffinePart> recurrentParts(const WeightParameters& weights, std::size_t i) {
  std::vector<AffinePart> parts{affinePart(weights, "WeightNonLinear", "BaesNonLinear", i),
                                affinePart(weights, "WeightLinear", "BaesLinear", i)};
  requireSize(parts[1].biasName, parts[1].bias.size(), "the length of " + parts[0].biasName,
              parts[0].bias.size());
  return parts;
}

AffinePart gatePart(const WeightParameters& weights, std::size_t stateLength) {
  AffinePart gate = affinePart(weights, "WeightGRU", "BaesGRU", 0);
  if (gate.bias.size() != 1) {
    requireSize(gate.biasName, gate.bias.size(), "the state's length", stateLength);
  }
  return gate;
}

NetworkWeights readRecurrent(const WeightParameters& weights, std::size_t inputs,
                             NetworkWeights::Output output) {
  const std::size_t layerCount = readLayerCount(weights, output);
  NetworkWeights result{
      .layers = {}, .inputs = inputs, .stateLength = readStateLength(weights), .output = output};
  std::size_t width = result.stateLength + inputs;
  for (std::size_t i = 0; i + 1 < layerCount; ++i) {
    std::vector<AffinePart> parts = recurrentParts(weights, i);
    const std::size_t layerWidth = parts.front().bias.size();
    if (i == 0) {
      requireSize("the first layer's " + parts[0].biasName, layerWidth,
                  "the state's length (rows of the last WeightNonLinear)", result.stateLength);
      parts.push_back(gatePart(weights, result.stateLength));
      result.gateLength = parts.back().bias.size();
    }
    result.layers.push_back({AffineBank(width, parts)});
    width = layerWidth;
  }
  const bool isLinear = output == NetworkWeights::Output::kLinear;
  const AffinePart last =
      isLinear ? affinePart(weights, "WeightLinear", "BaesLinear", layerCount - 1)
               : affinePart(weights, "WeightNonLinear", "BaesNonLinear", layerCount - 1);
  result.layers.push_back({AffineBank(width, {last})});
  return result;
}

std::vector<float> biasesOf(std::size_t inputs, const std::vector<AffinePart>& parts) {
  std::vector<float> biases;
  for (const AffinePart& part : parts) {
    checkPart(inputs, part);
    biases.insert(biases.end(), part.bias.begin(), part.bias.end());
  }
  return biases;
}

UTILS::AlignedFloats rowsOf(std::size_t inputs, std::size_t outputs,
                            const std::vector<AffinePart>& parts) {
  UTILS::AlignedFloats rows(inputs * outputs);
  auto out = rows.begin();
  for (std::size_t row = 0; row < inputs; ++row) {
    for (const AffinePart& part : parts) {
      out = std::copy_n(
          part.matrix.data.begin() + static_cast<std::ptrdiff_t>(row * part.matrix.dim1),
          part.matrix.dim1, out);
    }
  }
  return rows;
}

}  // namespace

AffineBank::AffineBank(std::size_t inputs, const std::vector<AffinePart>& parts)
    : bias_(biasesOf(inputs, parts)),
      matrix_(inputs, bias_.size(), rowsOf(inputs, bias_.size(), parts)) {}

void AffineBank::apply(const float* x, float* y) const {
  std::copy(bias_.begin(), bias_.end(), y);
  matrix_.multiplyAdd(x, y);
}

void AffineBank::apply(std::size_t count, const float* const* x, float* const* y) const {
  if (count == 1) {
    apply(*x, *y);
    return;
  }
  for (std::size_t i = 0; i < count; ++i) {
    std::copy(bias_.begin(), bias_.end(), y[i]);
  }
  matrix_.multiplyAdd(count, x, y);
}

std::shared_ptr<const NetworkWeights> NetworkWeights::feedForward(const WEIGHTS::Weight& weight,
                                                                  std::size_t inputs,
                                                                  std::size_t outputs,
                                                                  bool scaled) {
  const std::string name =
      (scaled ? "scaled " : "plain ") + std::to_string(inputs) + " to " + std::to_string(outputs);
  return weight.obtain<NetworkWeights>(
      name, [&] { return readFeedForward(WeightParameters(weight), inputs, outputs, scaled); });
}

std::shared_ptr<const NetworkWeights> NetworkWeights::recurrent(const WEIGHTS::Weight& weight,
                                                                std::size_t inputs, Output output) {
  const std::string name =
      (output == Output::kLinear ? "linear " : "sigmoid ") + std::to_string(inputs);
  return weight.obtain<NetworkWeights>(
      name, [&] { return readRecurrent(WeightParameters(weight), inputs, output); });
}

}  // namespace ORVEL::NOISE_CANCELLER
