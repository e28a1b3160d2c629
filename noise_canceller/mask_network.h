#pragma once

#include <memory>
#include <vector>

#include "noise_canceller/affine_bank.h"
#include "noise_canceller/network.h"

namespace ORVEL::NOISE_CANCELLER {

/** The immutable part of a MaskNetwork, shared by all sessions of a model. */
struct MaskNetworkWeights {
  struct Layer {
    AffineBank bank;
    /** Scale and shift after a hidden layer; empty where the version has none. */
    std::vector<float> multiplier;
    std::vector<float> reducer;
  };

  std::vector<Layer> layers;

  /**
   * @param inputs length of the network's input.
   * @param outputs length of the mask that the cleaner needs.
   * @param scaled whether hidden layers end in a scale and a shift.
   * @throws ORVEL_Exception naming the lists or sizes that do not agree.
   */
  static MaskNetworkWeights read(const WeightReader& weights, std::size_t inputs,
                                 std::size_t outputs, bool scaled);
};

/**
 * Feed-forward mask network: gated residual layers (linear branch plus rectified non-linear branch,
 * then an optional scale and shift per element) and a sigmoid layer.
 */
class MaskNetwork final : public Network {
 public:
  explicit MaskNetwork(std::shared_ptr<const MaskNetworkWeights> weights);

  std::size_t inputs() const override { return weights_->layers.front().bank.inputs(); }
  std::size_t outputs() const override { return weights_->layers.back().bank.outputs(); }
  void evaluate(const float* input, float* output) override;

 private:
  std::shared_ptr<const MaskNetworkWeights> weights_;
  std::vector<float> branches_;
  std::vector<float> hidden_;
};

}  // namespace ORVEL::NOISE_CANCELLER
