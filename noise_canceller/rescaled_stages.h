#pragma once

#include "noise_canceller/gain_settings.h"
#include "noise_canceller/masking_pipeline.h"
#include "weights/model_store.h"

/** What the versions with level-normalised features (v0.0.3 to v0.0.5) share. */
namespace ORVEL::NOISE_CANCELLER {

struct RescaledSettings {
  GainSettings gains;
  RescaleSettings rescale;
  SynthesisSettings synthesis;
};

/** Reads the keys behind the clip point: thresholds, then rescale. */
void readThresholdsAndRescale(const TuningKeys& keys, RescaledSettings& settings);

/** Throws for the first required parameter that is missing, in the order in which they are read. */
void requireRescaledParameters(const WeightReader& weights, bool recurrent);

/** Bands of the log-power versions, with the rate of the tuning key that v0.0.4 and v0.0.5 share. */
std::shared_ptr<const BandCompression> readBandCompression(const CONTAINERS::AnyMap& keys,
                                                           const FrameParameters& frame,
                                                           long defaultRate);

/** All stages; the network takes the features' history, the expansion may be empty. */
MaskingStages makeRescaledStages(WEIGHTS::Model& model, const FrameParameters& frame,
                                 RescaledSettings settings,
                                 std::unique_ptr<SpectralFeatures> features,
                                 std::unique_ptr<Network> network,
                                 std::shared_ptr<const BandCompression> expansion);

}  // namespace ORVEL::NOISE_CANCELLER
