#include "noise_canceller/rescaled_stages.h"

#include <cstdlib>
#include <utility>

namespace ORVEL::NOISE_CANCELLER {

void readThresholdsAndRescale(const TuningKeys& keys, RescaledSettings& settings) {
  readThresholds(keys, NumberStyle::kReal, settings.gains);
  readRescale(keys, settings.gains.rmThreshold, settings.rescale);
}

void requireRescaledParameters(const WeightReader& weights, bool recurrent) {
  weights.requireMatrices({"WeightLinear", "WeightNonLinear"});
  weights.requireVectors({"BaesLinear", "BaesNonLinear"});
  if (recurrent) {
    weights.requireMatrices({"WeightGRU"});
    weights.requireVectors({"BaesGRU"});
  }
  weights.requireInts({"SampleRate", "Step", "FiltrBegin", "FiltrEnd", "FrameLength",
                       "PreviewFrames", "CoefficientNumber"});
  weights.vector("MU");
  weights.vector("SD");
}

std::shared_ptr<const BandCompression> readBandCompression(const CONTAINERS::AnyMap& keys,
                                                           const FrameParameters& frame,
                                                           long defaultRate) {
  // One key sets the rate of both versions.
  const auto text = TuningKeys(keys, "_v0_0_5").text("ORVEL_COMPRESS_RATE");
  const bool isSet = text != nullptr && !text->empty();
  const long rate = isSet ? std::strtol(text->c_str(), nullptr, 10) : defaultRate;
  return std::make_shared<BandCompression>(frame.bandWidth(), rate);
}

MaskingStages makeRescaledStages(WEIGHTS::Model& model, const FrameParameters& frame,
                                 RescaledSettings settings,
                                 std::unique_ptr<SpectralFeatures> features,
                                 std::unique_ptr<Network> network,
                                 std::shared_ptr<const BandCompression> expansion) {
  const WeightReader weights(*model.weight);
  const bool repeating = expansion != nullptr;
  const std::size_t featureCount = features->size();
  const SharedWindow window = obtainVorbisWindow(model.keys, frame.frameLength);
  const auto fft = obtainFFT(model.keys, frame.frameLength);
  settings.synthesis.window = window;
  return {
      .frame = frame,
      .fft = fft,
      .analysisWindow = window,
      .features = std::move(features),
      .input = NetworkInput(
          featureCount, frame.previewFrames, 0, weights.vector("MU"), weights.vector("SD"),
          repeating ? NetworkInput::Statistics::kRepeating : NetworkInput::Statistics::kPerInput),
      .noiseAverage = std::nullopt,
      .network = std::move(network),
      .expansion = std::move(expansion),
      .gains = GainChain(settings.gains, RmThresholdOrder::kGainFirst, frame),
      .synthesis = Synthesis(fft, std::move(settings.synthesis), frame),
  };
}

}  // namespace ORVEL::NOISE_CANCELLER
