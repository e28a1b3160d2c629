#pragma once

#include <memory>

#include "noise_canceller/generated_objects.h"
#include "noise_canceller/mask_network.h"
#include "noise_canceller/recurrent_network.h"
#include "weights/model_store.h"

/** Network weights in the form that the networks use, checked and packed once per model. */
namespace ORVEL::NOISE_CANCELLER {

inline std::unique_ptr<Network> makeMaskNetwork(WEIGHTS::Model& model, std::size_t inputs,
                                                std::size_t outputs, bool scaled) {
  using Shared = std::shared_ptr<const MaskNetworkWeights>;
  const auto weights = obtainGenerated<Shared>(model.keys, "GEN_MaskNetwork", [&]() -> Shared {
    return std::make_shared<MaskNetworkWeights>(
        MaskNetworkWeights::read(WeightReader(*model.weight), inputs, outputs, scaled));
  });
  return std::make_unique<MaskNetwork>(*weights);
}

inline std::unique_ptr<RecurrentNetwork> makeRecurrentNetwork(
    WEIGHTS::Model& model, std::size_t inputs, RecurrentNetworkWeights::Output output) {
  using Shared = std::shared_ptr<const RecurrentNetworkWeights>;
  const auto weights = obtainGenerated<Shared>(model.keys, "GEN_RecurrentNetwork", [&]() -> Shared {
    return std::make_shared<RecurrentNetworkWeights>(
        RecurrentNetworkWeights::read(WeightReader(*model.weight), inputs, output));
  });
  return std::make_unique<RecurrentNetwork>(*weights);
}

}  // namespace ORVEL::NOISE_CANCELLER
