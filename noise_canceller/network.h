#pragma once

#include <cstddef>
#include <memory>
#include <span>
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

  /** A network with what it reads and writes in one hop. */
  struct Task {
    /** Null: nothing to evaluate. */
    Network* network = nullptr;
    const float* input = nullptr;
    float* output = nullptr;
    /** Null without a network. Those of the same weights can be evaluated together. */
    const NetworkWeights* weights() const {
      return network != nullptr ? network->weights_.get() : nullptr;
    }
  };
  static constexpr std::size_t kMostTogether = 64;

  /**
   * Evaluates up to kMostTogether different networks of the same weights with one product a layer. The
   * outputs agree with those one by one within rounding.
   */
  static void evaluate(std::span<const Task> tasks);

  /** Whether the state holds nothing infinite and no NaN. */
  bool isFinite() const;

  /** Sets the state back to zeros. */
  void reset();

 private:
  const float* firstInput(const float* input);
  const float* finishHidden(std::size_t layer);
  void updateState(const float* y, float* gate);

  std::shared_ptr<const NetworkWeights> weights_;
  /** The state, then the input: what a recurrent first layer takes. */
  std::vector<float> stateAndInput_;
  std::vector<float> branches_;
  std::vector<float> hidden_;
};

}  // namespace ORVEL::NOISE_CANCELLER
