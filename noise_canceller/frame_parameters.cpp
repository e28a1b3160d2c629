#include "noise_canceller/frame_parameters.h"

#include <string>

namespace ORVEL::NOISE_CANCELLER {

FrameParameters FrameParameters::read(const WeightReader& weights) {
  const FrameParameters frame{
      .sampleRate = weights.count("SampleRate"),
      .frameLength = weights.count("FrameLength"),
      .step = weights.count("Step"),
      .bandBegin = weights.count("FiltrBegin", 0),
      .bandEnd = weights.count("FiltrEnd"),
      .previewFrames = weights.count("PreviewFrames"),
      .coefficientNumber = weights.count("CoefficientNumber"),
  };
  // Throws its own error for rates and durations that no session works with.
  const WEIGHTS::WeightInfo info = WEIGHTS::getWeightInfo(weights.weight());
  if (info.frameDurationMs != 30 && info.frameDurationMs != 32) {
    refuseWeights("FrameLength is " + std::to_string(frame.frameLength) + " samples or " +
                  std::to_string(info.frameDurationMs) +
                  " ms, noise cleaning works with 30 or 32 ms");
  }
  // The delays are tuned to whole milliseconds: a longer hop would run into the output's reader.
  requireSize("FrameLength", frame.frameLength,
              "the whole length of " + std::to_string(info.frameDurationMs) + " ms",
              static_cast<std::size_t>(info.frameDurationMs) * frame.sampleRate / 1000);
  requireSize("FrameLength", frame.frameLength, "2 x Step", 2 * frame.step);
  requireSize("CoefficientNumber", frame.coefficientNumber, "FrameLength / 2 + 1",
              frame.frameLength / 2 + 1);
  if (frame.bandBegin >= frame.bandEnd) {
    refuseWeights("FiltrBegin is " + std::to_string(frame.bandBegin) + ", FiltrEnd is " +
                  std::to_string(frame.bandEnd) + " and must be above it");
  }
  if (frame.bandEnd > frame.coefficientNumber) {
    refuseWeights("FiltrEnd is " + std::to_string(frame.bandEnd) + ", CoefficientNumber is " +
                  std::to_string(frame.coefficientNumber) + " and must not be below it");
  }
  return frame;
}

}  // namespace ORVEL::NOISE_CANCELLER
