#include "noise_canceller/noise_cleaner_v0_0_1.h"

#include "noise_canceller/model_weights.h"
#include "noise_canceller/noise_average_stages.h"

namespace ORVEL::NOISE_CANCELLER {

namespace {

/** Window behind the inverse transform; without it the Hamming-windowed spectrum is masked. */
struct WindowAfterSettings {
  bool enabled = true;
  bool hamming = false;
};

WindowAfterSettings readWindowAfter(const TuningKeys& keys) {
  WindowAfterSettings settings;
  keys.readSwitch("ORVEL_ENABLE_WINDOW_AFTER", settings.enabled);
  const auto type = settings.enabled ? keys.text("ORVEL_WINDOW_AFTER") : nullptr;
  if (type != nullptr && *type == "HAMMING") {
    settings.hamming = true;
  }
  return settings;
}

SharedWindow windowAfter(const WindowAfterSettings& settings, CONTAINERS::AnyMap& keys,
                         std::size_t length) {
  if (!settings.enabled) {
    return nullptr;
  }
  return settings.hamming ? obtainHammingWindow(keys, length) : obtainTriangleWindow(keys, length);
}

MaskingStages makeStages(WEIGHTS::Model& model) {
  const NoiseAverageParameters parameters = NoiseAverageParameters::read(*model.weight);
  std::unique_ptr<Network> network = makeNoiseAverageNetwork(model, parameters);

  const TuningKeys keys(model.keys, "_v0_0_1");
  GainSettings gains;
  SynthesisSettings synthesis;
  readSmoothing(keys, gains);
  const WindowAfterSettings after = readWindowAfter(keys);
  readClipFix(keys, NumberStyle::kWhole, synthesis.clipFix);
  readThresholds(keys, NumberStyle::kWhole, gains);

  synthesis.window = windowAfter(after, model.keys, parameters.frame.frameLength);
  MaskingStages stages = makeNoiseAverageStages(
      model, parameters, std::move(network), gains, RmThresholdOrder::kGainFirst,
      obtainHammingWindow(model.keys, parameters.frame.frameLength), std::move(synthesis));
  stages.masksUnwindowedFrame = after.enabled;
  return stages;
}

}  // namespace

NoiseCleaner_v0_0_1::NoiseCleaner_v0_0_1(WEIGHTS::Model& model, int sessionFrameMs)
    : SpectralCleaner(model, makeStages(model), sessionFrameMs) {}

}  // namespace ORVEL::NOISE_CANCELLER
