#include "noise_canceller/overlap_add.h"

#include <algorithm>
#include <array>

namespace ORVEL::NOISE_CANCELLER {

namespace {

constexpr std::size_t kCapacityHops = 10;
constexpr std::array kSessionFramesMs{10, 15, 20, 30, 32, 40};
constexpr std::array<std::size_t, 6> kDelaysOf32Ms{31, 28, 28, 30, 16, 28};
constexpr std::array<std::size_t, 6> kDelaysOf30Ms{25, 15, 25, 15, 29, 25};

// Other durations are refused by the session; the cleaner built before that never runs.
std::size_t outputSamples(std::size_t sampleRate, int sessionFrameMs) {
  return sessionFrameMs > 0 ? sampleRate * static_cast<std::size_t>(sessionFrameMs) / 1000 : 0;
}

}  // namespace

std::size_t outputDelayMs(std::size_t frameLengthMs, int sessionFrameMs) {
  const auto known = std::find(kSessionFramesMs.begin(), kSessionFramesMs.end(), sessionFrameMs);
  if (known == kSessionFramesMs.end() || (frameLengthMs != 30 && frameLengthMs != 32)) {
    return 0;
  }
  const auto column = static_cast<std::size_t>(known - kSessionFramesMs.begin());
  return frameLengthMs == 32 ? kDelaysOf32Ms[column] : kDelaysOf30Ms[column];
}

OverlapAdd::OverlapAdd(const FrameParameters& frame, int sessionFrameMs)
    : step_(frame.step),
      delay_(frame.sampleRate * outputDelayMs(frame.frameDurationMs(), sessionFrameMs) / 1000),
      outputCount_(outputSamples(frame.sampleRate, sessionFrameMs)),
      input_(frame.step * kCapacityHops),
      output_(frame.step * kCapacityHops) {
  reset();
}

void OverlapAdd::reset() {
  input_.clear();
  output_.clear();
  output_.appendZeros(delay_);
  input_.appendZeros(step_);
}

void OverlapAdd::addFrame(const float* output) {
  input_.advance(step_);
  output_.appendZeros(step_);
  if (output == nullptr) {
    return;
  }
  const std::size_t length = 2 * step_;
  float* accumulated = output_.data() + output_.size() - length;
  for (std::size_t i = 0; i < length; ++i) {
    accumulated[i] += output[i];
  }
}

void OverlapAdd::deliver(std::vector<float>& samples) {
  samples.resize(outputCount_);
  std::copy_n(output_.data(), outputCount_, samples.data());
  output_.advance(outputCount_);
}

}  // namespace ORVEL::NOISE_CANCELLER
