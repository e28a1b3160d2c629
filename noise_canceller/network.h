#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "noise_canceller/network_weights.h"

namespace ORVEL::NOISE_CANCELLER {

/**
 * A session's network: hidden layers of a linear branch plus a rectified non-linear one, then an output
 * layer. A recurrent one shows its first layer the state in front of the input, and blends that layer's
 * output into the state for the next hop. Allocates nothing after construction.
 */
class Network {
 public:
  explicit Network(std::shared_ptr<const NetworkWeights> weights);

  std::size_t inputs() const { return weights_->inputs; }
  std::size_t outputs() const { return weights_->layers.back().bank.outputs(); }

  /** Reads inputs() values and writes outputs() values. */
  void evaluate(const float* input, float* output);

  /** Whether the state holds nothing infinite and no NaN. */
  bool isFinite() const;

  /** Sets the state back to zeros. */
  void reset();

 private:
  void updateState(const float* y, float* gate);

  std::shared_ptr<const NetworkWeights> weights_;
  /** The state, then the input: what a recurrent first layer takes. */
  std::vector<float> stateAndInput_;
  std::vector<float> branches_;
  std::vector<float> hidden_;
};

}  // namespace ORVEL::NOISE_CANCELLER
