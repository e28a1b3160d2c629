#include "orv-sdk/session.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

#include "utils/floating_point_mode.h"
#include "utils/orvel_exception.h"

namespace ORVEL {

namespace {

// The caller's samples and floats in 16-bit scale.

constexpr float kFullScale = 32768.0F;
constexpr float kHighestSample = 32767.0F;

void toFrame(const std::int16_t* input, std::size_t count, std::vector<float>& frame) {
  frame.assign(input, input + count);
}

/** Samples that are no finite numbers become 0: one of them would stay in a filter or state. */
void toFrame(const float* input, std::size_t count, std::vector<float>& frame) {
  constexpr float kMost = std::numeric_limits<float>::max();
  frame.resize(count);
  for (std::size_t i = 0; i < count; ++i) {
    frame[i] = std::isfinite(input[i]) ? std::clamp(input[i] * kFullScale, -kMost, kMost) : 0.0F;
  }
}

/** Limits the samples to what 16 bits hold; what is not a number becomes 0. */
void clampFrame(std::vector<float>& frame) {
  for (float& sample : frame) {
    sample = std::isnan(sample) ? 0.0F : std::clamp(sample, -kFullScale, kHighestSample);
  }
}

/** Writes the first `count` samples of the frame. */
void fromFrame(const std::vector<float>& frame, std::int16_t* output, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    output[i] = static_cast<std::int16_t>(frame[i]);
  }
}

void fromFrame(const std::vector<float>& frame, float* output, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    output[i] = frame[i] * (1.0F / kFullScale);
  }
}

void requireDuration(int frameDurationMs) {
  if (std::find(kFrameDurations.begin(), kFrameDurations.end(), frameDurationMs) ==
      kFrameDurations.end()) {
    throw UTILS::ORVEL_Exception("RESAMPLER WORKS WITH WRONG FRAMEDURATION ", "orv-sdk/session", 58,
                                 "OrvSessionT");
  }
}

std::uint32_t frameSamples(int durationMs, std::uint32_t rate) {
  return static_cast<std::uint32_t>(durationMs) * rate / 1000;
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

template <class Sample>
void OrvSessionT::begin(const Sample* input) {
  toFrame(input, inputSize_, frame_);
  const UTILS::FloatingPointMode mode(UTILS::FloatingPointMode::Denormals::kZero);
  convert(*inputResampler_);
  cleaner_->begin(frame_);
}

// Silence when the cleaner fails; the resampler runs all the same, so that the stream keeps its pace.
template <class Sample>
FrameResult OrvSessionT::end(Sample* output) {
  bool succeeded = false;
  {
    const UTILS::FloatingPointMode mode(UTILS::FloatingPointMode::Denormals::kZero);
    succeeded = cleaner_->end(frame_) > 0;
    convert(*outputResampler_);
  }
  if (!succeeded) {
    std::fill(frame_.begin(), frame_.end(), 0.0F);
  }
  fromFrame(frame_, output, outputSize_);
  return succeeded ? FrameResult::kDone : FrameResult::kFailed;
}

// Leaves the score as the frame's only value.
bool OrvSessionT::scoreFrame() {
  const UTILS::FloatingPointMode mode(UTILS::FloatingPointMode::Denormals::kZero);
  convert(*inputResampler_);
  const bool succeeded = cleaner_->process(frame_) > 0;
  const float score = frame_.front();
  frame_.assign(1, std::isfinite(score) ? score : 0.0F);
  return succeeded;
}

template <class Sample>
FrameResult OrvSessionT::process(const Sample* input, std::uint32_t inputCount, Sample* output,
                                 std::uint32_t outputCount) {
  if (!accepts(input, inputCount, output, outputCount)) {
    return FrameResult::kRefused;
  }
  begin(input);
  {
    const UTILS::FloatingPointMode mode(UTILS::FloatingPointMode::Denormals::kZero);
    cleaner_->processHops();
  }
  return end(output);
}

template <class Sample>
FrameResult OrvSessionT::score(const Sample* input, std::uint32_t inputCount, float* score) {
  if (inputCount != inputSize_ || input == nullptr || score == nullptr) {
    return FrameResult::kRefused;
  }
  toFrame(input, inputCount, frame_);
  const bool succeeded = scoreFrame();
  *score = frame_.front();
  return succeeded ? FrameResult::kDone : FrameResult::kFailed;
}

template FrameResult OrvSessionT::process(const std::int16_t*, std::uint32_t, std::int16_t*,
                                          std::uint32_t);
template FrameResult OrvSessionT::process(const float*, std::uint32_t, float*, std::uint32_t);
template void OrvSessionT::begin(const std::int16_t*);
template void OrvSessionT::begin(const float*);
template FrameResult OrvSessionT::end(std::int16_t*);
template FrameResult OrvSessionT::end(float*);
template FrameResult OrvSessionT::score(const std::int16_t*, std::uint32_t, float*);
template FrameResult OrvSessionT::score(const float*, std::uint32_t, float*);

void OrvSessionT::reset() {
  const UTILS::FloatingPointMode mode(UTILS::FloatingPointMode::Denormals::kZero);
  inputResampler_->reset();
  cleaner_->reset();
  outputResampler_->reset();
}

std::uint32_t OrvSessionT::latency() const {
  const auto modelDelay = static_cast<double>(inputResampler_->delay() + cleaner_->delay());
  const double atOutput = modelDelay * outputRate_ / modelRate_;
  return static_cast<std::uint32_t>(std::lround(atOutput)) +
         static_cast<std::uint32_t>(outputResampler_->delay());
}

}  // namespace ORVEL
