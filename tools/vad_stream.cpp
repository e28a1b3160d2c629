#include "tools/vad_stream.h"

#include <algorithm>
#include <string>
#include <utility>

#include "orvel/orv_sdk_ext.h"
#include "tools/tool_error.h"

namespace ORVEL::TOOLS {

VadStream::VadStream(Engine& engine, const AudioSpec& spec, Emit emit)
    : session_(engine.openVoiceSession()), spec_(spec), emit_(std::move(emit)) {
  // Converted here, not in the session: this conversion shifts nothing in time.
  if (session_.sampleRate() != spec.sampleRate) {
    converter_.emplace(spec.sampleRate, session_.sampleRate());
  }
}

double VadStream::seconds() const noexcept {
  return static_cast<double>(frames_) / spec_.sampleRate;
}

void VadStream::push(std::span<const float> interleaved) {
  const auto channels = static_cast<std::size_t>(spec_.channels);
  mono_.resize(interleaved.size() / channels);
  for (std::size_t i = 0; i < mono_.size(); ++i) {
    float sum = 0.0F;
    for (std::size_t c = 0; c < channels; ++c)
      sum += interleaved[i * channels + c];
    mono_[i] = sum / static_cast<float>(channels);
  }
  frames_ += mono_.size();
  if (!converter_) {
    feed(mono_);
    return;
  }
  converted_.clear();
  converter_->push(mono_, converted_);
  feed(converted_);
}

void VadStream::finish() {
  if (converter_) {
    converted_.clear();
    converter_->finish(converted_);
    feed(converted_);
  }
  const std::uint64_t perScore = static_cast<std::uint64_t>(spec_.sampleRate) * kFrameMs;
  const auto wanted = static_cast<std::int64_t>((frames_ * 1000 + perScore - 1) / perScore);
  while (scores_ < wanted) {
    waiting_.resize(session_.frameSize(), 0.0F);
    runFrame();
  }
}

void VadStream::feed(std::span<const float> samples) {
  while (!samples.empty()) {
    const auto part =
        samples.first(std::min(session_.frameSize() - waiting_.size(), samples.size()));
    waiting_.insert(waiting_.end(), part.begin(), part.end());
    samples = samples.subspan(part.size());
    if (waiting_.size() == session_.frameSize()) runFrame();
  }
}

void VadStream::runFrame() {
  float score = 0.0F;
  const int status = Orv_VAD_ProcessFloat(session_.handle(), waiting_.data(),
                                          static_cast<std::uint32_t>(waiting_.size()), &score);
  if (status != 0) {
    throw ToolError(ExitCode::internal,
                    "Orv_VAD_ProcessFloat failed with " + std::to_string(status));
  }
  waiting_.clear();
  if (hops_++ < kVadLagHops) return;
  ++scores_;
  emit_(static_cast<double>(score));
}

}  // namespace ORVEL::TOOLS
