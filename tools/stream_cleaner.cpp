#include "tools/stream_cleaner.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>

#include "orvel/orv_sdk.h"
#include "orvel/orv_sdk_ext.h"
#include "tools/tool_error.h"

namespace ORVEL::TOOLS {
namespace {

void check(int status, const char* call) {
  if (status != 0) {
    throw ToolError(ExitCode::internal,
                    std::string(call) + " failed with " + std::to_string(status));
  }
}

}  // namespace

ChannelCleaner::ChannelCleaner(Session session, const SessionDelay& delay, int audioRate,
                               std::optional<float> attenuationLimitDb)
    : session_(std::move(session)), skip_(delay.samples), frame_(session_.frameSize()) {
  if (session_.sampleRate() != audioRate) {
    toSession_.emplace(audioRate, session_.sampleRate());
    fromSession_.emplace(session_.sampleRate(), audioRate);
  }
  constexpr double kNegligible = 0.01;  // of a sample
  if (std::abs(delay.fraction) > kNegligible) {
    fraction_.emplace(-delay.fraction);
    skip_ += FractionalDelay::kWholeDelay;
  }
  if (attenuationLimitDb) {
    check(Orv_NC_SetAttenuationLimit(session_.handle(), *attenuationLimitDb),
          "Orv_NC_SetAttenuationLimit");
  }
}

void ChannelCleaner::push(std::span<const float> input, std::vector<float>& output) {
  pushed_ += input.size();
  if (!toSession_) {
    feed(input, output);
    given_ = cleaned_;
    return;
  }
  converted_.clear();
  toSession_->push(input, converted_);
  result_.clear();
  feed(converted_, result_);
  const std::size_t before = output.size();
  fromSession_->push(result_, output);
  given_ += output.size() - before;
}

void ChannelCleaner::finish(std::vector<float>& output) {
  std::vector<float>& cleaned = toSession_ ? result_ : output;
  if (toSession_) {
    converted_.clear();
    result_.clear();
    toSession_->finish(converted_);
    feed(converted_, cleaned);
  }
  // Not quite zeros: a cleaner may let everything pass while it is given digital silence, and what it
  // still holds is the end of the real signal.
  constexpr float kAlmostSilent = 1e-9F;
  while (cleaned_ < fed_) {
    waiting_.resize(frame_.size(), kAlmostSilent);
    runFrame(cleaned);
  }
  // The last frame may run past the end.
  cleaned.resize(cleaned.size() - static_cast<std::size_t>(cleaned_ - fed_));
  cleaned_ = fed_;
  if (!toSession_) return;

  std::vector<float> tail;
  fromSession_->push(result_, tail);
  fromSession_->finish(tail);
  // Two conversions of a finite stream may round its length by a sample.
  tail.resize(static_cast<std::size_t>(std::max(pushed_, given_) - given_), 0.0F);
  output.insert(output.end(), tail.begin(), tail.end());
  given_ = pushed_;
}

void ChannelCleaner::feed(std::span<const float> atSessionRate, std::vector<float>& output) {
  fed_ += atSessionRate.size();
  while (!atSessionRate.empty()) {
    const std::size_t room = frame_.size() - waiting_.size();
    const auto part = atSessionRate.first(std::min(room, atSessionRate.size()));
    waiting_.insert(waiting_.end(), part.begin(), part.end());
    atSessionRate = atSessionRate.subspan(part.size());
    if (waiting_.size() == frame_.size()) runFrame(output);
  }
}

void ChannelCleaner::runFrame(std::vector<float>& output) {
  const auto count = static_cast<std::uint32_t>(frame_.size());
  check(Orv_NC_CleanAmbientNoiseFloat(session_.handle(), waiting_.data(), count, frame_.data(),
                                      count),
        "Orv_NC_CleanAmbientNoiseFloat");
  waiting_.clear();
  if (fraction_) fraction_->process(frame_);
  const auto dropped = static_cast<std::size_t>(std::min<std::uint64_t>(skip_, frame_.size()));
  skip_ -= dropped;
  output.insert(output.end(), frame_.begin() + static_cast<std::ptrdiff_t>(dropped), frame_.end());
  cleaned_ += frame_.size() - dropped;
}

StreamCleaner::StreamCleaner(Engine& engine, const AudioSpec& spec,
                             std::optional<float> attenuationLimitDb) {
  // One more than there are channels, to measure the delay with.
  std::vector<Session> sessions = engine.openNoiseSessions(spec.sampleRate, spec.channels + 1);
  sessionRate_ = sessions.back().sampleRate();
  delay_ = measureDelay(std::move(sessions.back()));
  sessions.pop_back();
  for (Session& session : sessions) {
    channels_.emplace_back(std::move(session), delay_, spec.sampleRate, attenuationLimitDb);
  }
  outputs_.resize(channels_.size());
}

void StreamCleaner::push(std::span<const float> interleaved, std::vector<float>& output) {
  const std::size_t count = channels_.size();
  channel_.resize(interleaved.size() / count);
  for (std::size_t c = 0; c < count; ++c) {
    for (std::size_t i = 0; i < channel_.size(); ++i)
      channel_[i] = interleaved[i * count + c];
    outputs_[c].clear();
    channels_[c].push(channel_, outputs_[c]);
  }
  interleave(output);
}

void StreamCleaner::finish(std::vector<float>& output) {
  for (std::size_t c = 0; c < channels_.size(); ++c) {
    outputs_[c].clear();
    channels_[c].finish(outputs_[c]);
  }
  interleave(output);
}

void StreamCleaner::interleave(std::vector<float>& output) {
  const std::size_t count = channels_.size();
  const std::size_t frames = outputs_.front().size();
  const std::size_t before = output.size();
  output.resize(before + frames * count);
  for (std::size_t c = 0; c < count; ++c) {
    for (std::size_t i = 0; i < frames; ++i)
      output[before + i * count + c] = outputs_[c][i];
  }
}

}  // namespace ORVEL::TOOLS
