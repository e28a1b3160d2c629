#include "orv-sdk/session.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "orv-sdk/sample_format.h"
#include "utils/denormal_guard.h"
#include "utils/diagnostics.h"
#include "utils/orvel_exception.h"

namespace ORVEL {

namespace {

constexpr const char* kInt16Mismatch =
    "ERROR input dataSize or output dataSize or pointers of inputData output Data is wrong\n input "
    "size must be ";
constexpr const char* kFloatMismatch =
    "ERROR input dataSize or output dataSize is wrong \n input size must be ";

void requireDuration(int frameDurationMs) {
  constexpr std::array kDurations{10, 20, 30, 40};
  if (std::find(kDurations.begin(), kDurations.end(), frameDurationMs) == kDurations.end()) {
    throw UTILS::ORVEL_Exception("RESAMPLER WORKS WITH WRONG FRAMEDURATION ", "orv-sdk/session", 58,
                                 "OrvSessionT");
  }
}

std::uint32_t frameSamples(int durationMs, std::uint32_t rate) {
  return static_cast<std::uint32_t>(durationMs) * rate / 1000;
}

bool reject(const char* message, std::uint32_t inputSize, std::uint32_t outputSize) {
  UTILS::printErrorLine(message, inputSize, "\n output size must be ", outputSize);
  return false;
}

}  // namespace

OrvSessionT::OrvSessionT(const WEIGHTS::ModelStore& models, ResamplerCache& resamplers,
                         const Request& request)
    : cleaner_(NOISE_CANCELLER::create(models, static_cast<std::uint32_t>(request.inputRate),
                                       request.frameDurationMs, request.modelName, request.kind)),
      kind_(WEIGHTS::isVoiceActivityVersion(WEIGHTS::getWeightVersion(cleaner_->weight()))
                ? SessionKind::kVoiceActivity
                : SessionKind::kNoiseCleaning) {
  modelRate_ = static_cast<std::uint32_t>(WEIGHTS::getWeightInfo(cleaner_->weight()).sampleRate);
  // Checked before the resamplers are opened: a duration of 0 has no conversion factor.
  const int duration = request.frameDurationMs;
  requireDuration(duration);
  const bool cleans = request.kind == SessionKind::kNoiseCleaning;
  const std::uint32_t modelSize = frameSamples(duration, modelRate_);
  inputSize_ = frameSamples(duration, static_cast<std::uint32_t>(request.inputRate));
  outputRate_ = cleans ? static_cast<std::uint32_t>(request.outputRate) : modelRate_;
  const std::uint32_t convertedSize = frameSamples(duration, outputRate_);
  // A detector gives scores, no samples.
  outputSize_ = cleans ? convertedSize : 0;
  inputResampler_ = std::make_unique<FrameResampler>(resamplers, inputSize_, modelSize);
  outputResampler_ = std::make_unique<FrameResampler>(resamplers, modelSize, convertedSize);
  const std::size_t longest = std::max({inputSize_, modelSize, convertedSize});
  frame_.reserve(longest);
  converted_.reserve(longest);
}

void OrvSessionT::convert(FrameResampler& resampler) {
  if (!resampler.isIdentity() && resampler.process(frame_, converted_) > 0) {
    frame_.swap(converted_);
  }
  clampFrame(frame_);
}

void OrvSessionT::cleanFrame() {
  const UTILS::DenormalGuard guard;
  convert(*inputResampler_);
  cleaner_->process(frame_);
  convert(*outputResampler_);
}

float OrvSessionT::scoreFrame() {
  const UTILS::DenormalGuard guard;
  convert(*inputResampler_);
  cleaner_->process(frame_);
  const float score = frame_.front();
  return std::isfinite(score) ? score : 0.0F;
}

bool OrvSessionT::processInt16(const std::int16_t* input, std::uint32_t inputCount,
                               std::int16_t* output, std::uint32_t outputCount) {
  if (inputCount != inputSize_ || outputCount != outputSize_ || input == nullptr ||
      output == nullptr) {
    return reject(kInt16Mismatch, inputSize_, outputSize_);
  }
  toFrame(input, inputCount, frame_);
  cleanFrame();
  fromFrame(frame_, output, outputSize_);
  return true;
}

bool OrvSessionT::processFloat(const float* input, std::uint32_t inputCount, float* output,
                               std::uint32_t outputCount) {
  if (inputCount != inputSize_ || outputCount != outputSize_ || input == nullptr ||
      output == nullptr) {
    return reject(kFloatMismatch, inputSize_, outputSize_);
  }
  toFrame(input, inputCount, frame_);
  cleanFrame();
  fromFrame(frame_, output, outputSize_);
  return true;
}

bool OrvSessionT::scoreInt16(const std::int16_t* input, std::uint32_t inputCount, float* score) {
  if (inputCount != inputSize_ || input == nullptr || score == nullptr) {
    return reject(kInt16Mismatch, inputSize_, outputSize_);
  }
  toFrame(input, inputCount, frame_);
  *score = scoreFrame();
  return true;
}

bool OrvSessionT::scoreFloat(const float* input, std::uint32_t inputCount, float* score) {
  if (inputCount != inputSize_ || input == nullptr || score == nullptr) {
    return reject(kFloatMismatch, inputSize_, outputSize_);
  }
  toFrame(input, inputCount, frame_);
  *score = scoreFrame();
  return true;
}

std::uint32_t OrvSessionT::latency() const {
  const auto modelDelay = static_cast<double>(inputResampler_->delay() + cleaner_->delay());
  const double atOutput = modelDelay * outputRate_ / modelRate_;
  return static_cast<std::uint32_t>(std::lround(atOutput)) +
         static_cast<std::uint32_t>(outputResampler_->delay());
}

}  // namespace ORVEL
