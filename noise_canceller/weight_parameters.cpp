#include "noise_canceller/weight_parameters.h"

#include "utils/orvel_exception.h"

namespace ORVEL::NOISE_CANCELLER {

void refuseWeights(const std::string& message) {
  throw UTILS::ORVEL_Exception(message.c_str(), "noise_canceller/weight_parameters", 0,
                               "refuseWeights");
}

void requireSize(const std::string& name, std::size_t actual, const std::string& what,
                 std::size_t expected) {
  if (actual != expected) {
    refuseWeights(name + " is " + std::to_string(actual) + ", " + what + " is " +
                  std::to_string(expected));
  }
}

std::size_t WeightParameters::count(const char* name, std::size_t least) const {
  const int value = weight_.values().getReference<int>(name);
  if (value < 0 || static_cast<std::size_t>(value) < least) {
    refuseWeights(std::string(name) + " is " + std::to_string(value) + ", the least allowed is " +
                  std::to_string(least));
  }
  return static_cast<std::size_t>(value);
}

const std::vector<float>& WeightParameters::vector(const char* name) const {
  return weight_.values().getReference<std::vector<float>>(name);
}

const WeightParameters::Vectors& WeightParameters::vectors(const char* name) const {
  return weight_.values().getReference<Vectors>(name);
}

const WeightParameters::Matrices& WeightParameters::matrices(const char* name) const {
  return weight_.values().getReference<Matrices>(name);
}

void WeightParameters::require(std::span<const RequiredParameter> parameters) const {
  for (const auto& [name, type] : parameters) {
    switch (type) {
      case ParameterType::kInt:
        weight_.values().getReference<int>(name);
        break;
      case ParameterType::kFloats:
        vector(name);
        break;
      case ParameterType::kFloatLists:
        vectors(name);
        break;
      case ParameterType::kMatrices:
        matrices(name);
        break;
    }
  }
}

FrameParameters FrameParameters::read(const WeightParameters& weights) {
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
