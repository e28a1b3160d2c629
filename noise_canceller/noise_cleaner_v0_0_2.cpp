#include "noise_canceller/noise_cleaner_v0_0_2.h"

#include "noise_canceller/noise_average_stages.h"

namespace ORVEL::NOISE_CANCELLER {

namespace {

MaskingStages makeStages(WEIGHTS::Model& model) {
  const NoiseAverageParameters parameters = NoiseAverageParameters::read(*model.weight);
  std::unique_ptr<Network> network = makeNoiseAverageNetwork(model, parameters);

  const TuningKeys keys(model.keys, "_v0_0_2");
  GainSettings gains;
  SynthesisSettings synthesis;
  readSmoothing(keys, gains);
  readClipFix(keys, NumberStyle::kWhole, synthesis.clipFix);
  readThresholds(keys, NumberStyle::kWhole, gains);

  const SharedWindow window = obtainVorbisWindow(model.keys, parameters.frame.frameLength);
  synthesis.window = window;
  return makeNoiseAverageStages(model, parameters, std::move(network), gains,
                                RmThresholdOrder::kReciprocalFirst, window, std::move(synthesis));
}

}  // namespace

NoiseCleaner_v0_0_2::NoiseCleaner_v0_0_2(WEIGHTS::Model& model, int sessionFrameMs)
    : SpectralCleaner(model, makeStages(model), sessionFrameMs) {}

}  // namespace ORVEL::NOISE_CANCELLER
