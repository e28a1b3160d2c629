#include "noise_canceller/noise_cleaner_v0_0_5.h"

#include <algorithm>
#include <utility>

#include "noise_canceller/model_weights.h"
#include "noise_canceller/rescaled_stages.h"
#include "noise_canceller/skippable_network.h"
#include "utils/diagnostics.h"

namespace ORVEL::NOISE_CANCELLER {

namespace {

constexpr long kDefaultRate = 2;
constexpr float kVolumeUpLimit = 200.0F;

bool isOn(const TuningKeys& keys, const char* stem) {
  bool on = false;
  keys.readSwitch(stem, on);
  return on;
}

// Louder output may clip, so the volume brings the clip fix along.
void readVolumeUp(const TuningKeys& keys, SynthesisSettings& settings) {
  if (!isOn(keys, "ORVEL_VOLUME_UP")) {
    return;
  }
  float percent = 0.0F;
  keys.readReal("ORVEL_VOLUME_UP_PERCENT", percent);
  if (!(percent > 0.0F && percent < kVolumeUpLimit)) {
    return;
  }
  settings.volume = percent / 100.0 + 1.0;
  if (!settings.clipFix.enabled) {
    UTILS::printLine("WARNING: Enabled Clip fix, because VolumeUp is Enabled");
    settings.clipFix.enabled = true;
  }
}

}  // namespace

struct NoiseCleaner_v0_0_5::Parts {
  MaskingStages stages;
  SkippableNetwork* skippable;
};

NoiseCleaner_v0_0_5::Parts NoiseCleaner_v0_0_5::makeParts(WEIGHTS::Model& model) {
  const WeightReader weights(*model.weight);
  requireRescaledParameters(weights, true);
  const FrameParameters frame = FrameParameters::read(weights);

  const TuningKeys keys(model.keys, "_v0_0_5");
  RescaledSettings settings;
  readSmoothing(keys, settings.gains);
  readClipFix(keys, NumberStyle::kReal, settings.synthesis.clipFix);
  const bool skipsSilence = isOn(keys, "ORVEL_SKIP_FRAME");
  readVolumeUp(keys, settings.synthesis);
  readThresholdsAndRescale(keys, settings);

  const auto bands = readBandCompression(model.keys, frame, kDefaultRate);
  std::unique_ptr<Network> network = makeRecurrentNetwork(
      model, frame.previewFrames * bands->bands(), RecurrentNetworkWeights::Output::kSigmoidMask);
  SkippableNetwork* skippable = nullptr;
  if (skipsSilence) {
    auto wrapped = std::make_unique<SkippableNetwork>(std::move(network));
    skippable = wrapped.get();
    network = std::move(wrapped);
  }
  auto features = std::make_unique<LogPowerBandFeatures>(frame, settings.rescale, bands);
  return {makeRescaledStages(model, frame, std::move(settings), std::move(features),
                             std::move(network), bands),
          skippable};
}

NoiseCleaner_v0_0_5::NoiseCleaner_v0_0_5(WEIGHTS::Model& model, int sessionFrameMs)
    : NoiseCleaner_v0_0_5(model, makeParts(model), sessionFrameMs) {}

NoiseCleaner_v0_0_5::NoiseCleaner_v0_0_5(WEIGHTS::Model& model, Parts parts, int sessionFrameMs)
    : SpectralCleaner(model, std::move(parts.stages), sessionFrameMs),
      skippable_(parts.skippable) {}

int NoiseCleaner_v0_0_5::process(std::vector<float>& samples) {
  if (skippable_ != nullptr) {
    skippable_->setSkipping(
        std::all_of(samples.begin(), samples.end(), [](float sample) { return sample == 0.0F; }));
  }
  return SpectralCleaner::process(samples);
}

}  // namespace ORVEL::NOISE_CANCELLER
