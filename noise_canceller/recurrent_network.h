#pragma once

#include <memory>
#include <vector>

#include "noise_canceller/affine_bank.h"
#include "noise_canceller/network.h"

namespace ORVEL::NOISE_CANCELLER {

/** The immutable part of a RecurrentNetwork, shared by all sessions of a model. */
struct RecurrentNetworkWeights {
  enum class Output {
    /** As many layers as WeightNonLinear has; a sigmoid over its last one. */
    kSigmoidMask,
    /** As many layers as WeightLinear has; its last one as it is. */
    kLinear,
  };

  /** Hidden layers as [non-linear | linear], the first with the gate behind, then the output layer. */
  std::vector<AffineBank> layers;
  std::size_t inputs;
  std::size_t stateLength;
  /** Values of the gate: one per state element or one for all. */
  std::size_t gateLength;
  Output output;

  /**
   * @param inputs length of the network's input, the state not counted.
   * @throws ORVEL_Exception naming the lists or sizes that do not agree.
   */
  static RecurrentNetworkWeights read(const WeightReader& weights, std::size_t inputs,
                                      Output output);
};

/**
 * Network with a gated state: the first layer sees the state and the input, its output is blended into
 * the state for the next hop, and goes on unblended to the layers behind it.
 */
class RecurrentNetwork final : public Network {
 public:
  explicit RecurrentNetwork(std::shared_ptr<const RecurrentNetworkWeights> weights);

  std::size_t inputs() const override { return weights_->inputs; }
  std::size_t outputs() const override { return weights_->layers.back().outputs(); }
  void evaluate(const float* input, float* output) override;

  /** Sets the state back to zeros. */
  void resetState();

 private:
  void updateState(const float* y, float* gate);

  std::shared_ptr<const RecurrentNetworkWeights> weights_;
  /** The state, then the input: what the first layer takes. */
  std::vector<float> stateAndInput_;
  std::vector<float> branches_;
  std::vector<float> hidden_;
};

}  // namespace ORVEL::NOISE_CANCELLER
