#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "noise_canceller/weight_parameters.h"
#include "utils/arithmetic.h"

namespace ORVEL::NOISE_CANCELLER {

/** One affine map y = b + W^T x, still as loaded; the names are for messages. */
struct AffinePart {
  const CONTAINERS::Matrix& matrix;
  const std::vector<float>& bias;
  std::string matrixName;
  std::string biasName;
};

/**
 * Affine maps that share their input, laid side by side so that one matrix-vector product computes
 * them all.
 */
class AffineBank {
 public:
  /** @throws ORVEL_Exception unless every part takes `inputs` values and has a bias per output. */
  AffineBank(std::size_t inputs, const std::vector<AffinePart>& parts);

  std::size_t inputs() const { return matrix_.inputs(); }
  /** Values of all parts together. */
  std::size_t outputs() const { return bias_.size(); }

  /** y (outputs() values, one part after the other) = biases + matrices^T x (inputs() values). */
  void apply(const float* x, float* y) const;
  /** The same for `count` vectors, each where it lies. */
  void apply(std::size_t count, const float* const* x, float* const* y) const;

 private:
  std::vector<float> bias_;
  UTILS::WeightMatrix matrix_;
};

/**
 * A network's weights, checked and packed: made once per weight set, immutable, shared by all its
 * sessions. Every reader throws ORVEL_Exception naming the lists or sizes that do not agree.
 */
struct NetworkWeights {
  struct Layer {
    AffineBank bank;
    /** Scale and shift after a hidden layer; empty where the version has none. */
    std::vector<float> multiplier = {};
    std::vector<float> reducer = {};
  };
  enum class Output { kSigmoid, kLinear };

  /** Hidden layers as [non-linear | linear], the first with the gate behind, then the output layer. */
  std::vector<Layer> layers;
  /** Values that a hop gives the network. */
  std::size_t inputs;
  /** Values of the state that the first layer takes in front of the input; 0: not recurrent. */
  std::size_t stateLength = 0;
  /** Values of the state's gate: one per element or one for all; 0: no gate. */
  std::size_t gateLength = 0;
  Output output = Output::kSigmoid;

  /**
   * Feed-forward, with as many layers as WeightLinear has.
   *
   * @param outputs length of the mask that the cleaner needs.
   * @param scaled whether hidden layers end in a scale and a shift.
   */
  static std::shared_ptr<const NetworkWeights> feedForward(const WEIGHTS::Weight& weight,
                                                           std::size_t inputs, std::size_t outputs,
                                                           bool scaled);
  /**
   * With a gated state. A sigmoid output has as many layers as WeightNonLinear and ends in its last one,
   * a linear one as many as WeightLinear.
   */
  static std::shared_ptr<const NetworkWeights> recurrent(const WEIGHTS::Weight& weight,
                                                         std::size_t inputs, Output output);
};

}  // namespace ORVEL::NOISE_CANCELLER
