#include "noise_canceller/noise_cleaner_v0_0_4.h"

#include "noise_canceller/model_weights.h"
#include "noise_canceller/rescaled_stages.h"

namespace ORVEL::NOISE_CANCELLER {

namespace {

constexpr long kDefaultRate = 1;

MaskingStages makeStages(WEIGHTS::Model& model) {
  const WeightReader weights(*model.weight);
  requireRescaledParameters(weights, false);
  const FrameParameters frame = FrameParameters::read(weights);

  const TuningKeys keys(model.keys, "_v0_0_4");
  RescaledSettings settings;
  readSmoothing(keys, settings.gains);
  readClipFix(keys, NumberStyle::kReal, settings.synthesis.clipFix);
  readThresholdsAndRescale(keys, settings);

  const auto bands = readBandCompression(model.keys, frame, kDefaultRate);
  std::unique_ptr<Network> network =
      makeMaskNetwork(model, frame.previewFrames * bands->bands(), bands->bands(), false);
  auto features = std::make_unique<LogPowerBandFeatures>(frame, settings.rescale, bands);
  return makeRescaledStages(model, frame, std::move(settings), std::move(features),
                            std::move(network), bands);
}

}  // namespace

NoiseCleaner_v0_0_4::NoiseCleaner_v0_0_4(WEIGHTS::Model& model, int sessionFrameMs)
    : SpectralCleaner(model, makeStages(model), sessionFrameMs) {}

}  // namespace ORVEL::NOISE_CANCELLER
