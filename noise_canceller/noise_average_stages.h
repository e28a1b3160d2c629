#pragma once

#include <memory>

#include "noise_canceller/gain_settings.h"
#include "noise_canceller/masking_pipeline.h"
#include "weights/model_store.h"

/** What the versions with a noise average (v0.0.1, v0.0.2) share. */
namespace ORVEL::NOISE_CANCELLER {

struct NoiseAverageParameters {
  FrameParameters frame;
  std::size_t noiseFrames;

  /** @throws ORVEL_Exception for the first parameter that is missing or does not fit. */
  static NoiseAverageParameters read(const WEIGHTS::Weight& weight);

  /** Values that the network takes: the history's and those of the noise average. */
  std::size_t inputs() const { return (frame.previewFrames + 1) * frame.bandWidth(); }
};

std::unique_ptr<Network> makeNoiseAverageNetwork(WEIGHTS::Model& model,
                                                 const NoiseAverageParameters& parameters);

MaskingStages makeNoiseAverageStages(WEIGHTS::Model& model,
                                     const NoiseAverageParameters& parameters,
                                     std::unique_ptr<Network> network, const GainSettings& gains,
                                     RmThresholdOrder order, SharedWindow analysisWindow,
                                     SynthesisSettings synthesis);

}  // namespace ORVEL::NOISE_CANCELLER
