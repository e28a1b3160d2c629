#include "noise_canceller/noise_cleaner_v0_0_3.h"

#include "noise_canceller/model_weights.h"
#include "noise_canceller/rescaled_stages.h"

namespace ORVEL::NOISE_CANCELLER {

namespace {

MaskingStages makeStages(WEIGHTS::Model& model) {
  const WeightReader weights(*model.weight);
  requireRescaledParameters(weights, false);
  const FrameParameters frame = FrameParameters::read(weights);
  std::unique_ptr<Network> network =
      makeMaskNetwork(model, frame.previewFrames * frame.bandWidth(), frame.bandWidth(), false);

  const TuningKeys keys(model.keys, "_v0_0_3");
  RescaledSettings settings;
  readSmoothing(keys, settings.gains);
  readClipFix(keys, NumberStyle::kReal, settings.synthesis.clipFix);
  readThresholdsAndRescale(keys, settings);

  auto features = std::make_unique<LogMagnitudeFeatures>(frame, settings.rescale);
  return makeRescaledStages(model, frame, std::move(settings), std::move(features),
                            std::move(network), nullptr);
}

}  // namespace

NoiseCleaner_v0_0_3::NoiseCleaner_v0_0_3(WEIGHTS::Model& model, int sessionFrameMs)
    : SpectralCleaner(model, makeStages(model), sessionFrameMs) {}

}  // namespace ORVEL::NOISE_CANCELLER
