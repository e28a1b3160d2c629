#include "noise_canceller/noise_average_stages.h"

#include <utility>

#include "noise_canceller/model_weights.h"

namespace ORVEL::NOISE_CANCELLER {

NoiseAverageParameters NoiseAverageParameters::read(const WEIGHTS::Weight& weight) {
  const WeightReader weights(weight);
  weights.requireInts({"SampleRate", "FrameLength", "Step", "FiltrBegin", "FiltrEnd",
                       "PreviewFrames", "NATFrameCount", "CoefficientNumber"});
  weights.vector("MU");
  weights.vector("SD");
  weights.requireMatrices({"WeightLinear", "WeightNonLinear"});
  weights.requireVectors({"BaesLinear", "BaesNonLinear", "HeadenMultiplier", "HeadenReducer"});
  return {FrameParameters::read(weights), weights.count("NATFrameCount")};
}

std::unique_ptr<Network> makeNoiseAverageNetwork(WEIGHTS::Model& model,
                                                 const NoiseAverageParameters& parameters) {
  return makeMaskNetwork(model, parameters.inputs(), parameters.frame.bandWidth(), true);
}

MaskingStages makeNoiseAverageStages(WEIGHTS::Model& model,
                                     const NoiseAverageParameters& parameters,
                                     std::unique_ptr<Network> network, const GainSettings& gains,
                                     RmThresholdOrder order, SharedWindow analysisWindow,
                                     SynthesisSettings synthesis) {
  const WeightReader weights(*model.weight);
  const FrameParameters& frame = parameters.frame;
  const auto fft = obtainFFT(model.keys, frame.frameLength);
  return {
      .frame = frame,
      .fft = fft,
      .analysisWindow = std::move(analysisWindow),
      .features = std::make_unique<LogMagnitudeFeatures>(frame),
      .input = NetworkInput(frame.bandWidth(), frame.previewFrames, frame.bandWidth(),
                            weights.vector("MU"), weights.vector("SD"),
                            NetworkInput::Statistics::kPerInput),
      .noiseAverage = NoiseAverage(frame, parameters.noiseFrames),
      .network = std::move(network),
      .expansion = nullptr,
      .gains = GainChain(gains, order, frame),
      .synthesis = Synthesis(fft, std::move(synthesis), frame),
  };
}

}  // namespace ORVEL::NOISE_CANCELLER
