#pragma once

#include <algorithm>
#include <memory>
#include <utility>

#include "noise_canceller/network.h"

namespace ORVEL::NOISE_CANCELLER {

/** A network that can be passed over: its output is then all ones and its state stays as it was. */
class SkippableNetwork final : public Network {
 public:
  explicit SkippableNetwork(std::unique_ptr<Network> network) : network_(std::move(network)) {}

  void setSkipping(bool skipping) { skipping_ = skipping; }

  std::size_t inputs() const override { return network_->inputs(); }
  std::size_t outputs() const override { return network_->outputs(); }
  void evaluate(const float* input, float* output) override {
    if (skipping_) {
      std::fill_n(output, outputs(), 1.0F);
    } else {
      network_->evaluate(input, output);
    }
  }

 private:
  std::unique_ptr<Network> network_;
  bool skipping_ = false;
};

}  // namespace ORVEL::NOISE_CANCELLER
