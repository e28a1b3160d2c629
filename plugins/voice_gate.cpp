#include "plugins/voice_gate.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace ORVEL::PLUGINS {
namespace {

constexpr double kAttackMs = 5.0;
constexpr double kReleaseMs = 50.0;

}  // namespace

VoiceGate::VoiceGate(const orvel::Library& library, const orvel::StreamOptions& options,
                     std::size_t latency)
    : rate_(options.rate),
      latency_(latency),
      attack_(1.0F / static_cast<float>(samples(kAttackMs))),
      release_(1.0F / static_cast<float>(samples(kReleaseMs))) {
  for (int c = 0; c < options.channels; ++c)
    detectors_.emplace_back(library, orvel::StreamOptions{options.rate, 1, options.model});
}

std::int64_t VoiceGate::samples(double milliseconds) const noexcept {
  return static_cast<std::int64_t>(std::lround(milliseconds * rate_ / 1000.0));
}

void VoiceGate::reset() {
  on_ = false;
  gain_ = 1.0F;
}

// The gate begins open, as if somebody had just spoken.
void VoiceGate::begin(const Settings& settings) {
  for (orvel::VoiceDetector& detector : detectors_)
    detector.reset();
  now_ = scoredTo_ = 0;
  openUntil_ = static_cast<std::int64_t>(latency_) + samples(static_cast<double>(settings.holdMs));
}

void VoiceGate::process(std::span<const float* const> input, std::span<float* const> output,
                        std::size_t count, const Settings& settings) {
  if (settings.on && !on_) begin(settings);
  on_ = settings.on;
  if (!on_ && gain_ == 1.0F) return;
  const std::size_t unit = detectors_.front().scoreSize();
  for (std::size_t done = 0; done < count;) {
    // Scores come at the end of a unit: what a block gives does not depend on where blocks end.
    const std::size_t part = std::min(count - done, unit - static_cast<std::size_t>(now_) % unit);
    for (std::size_t i = done; i < done + part; ++i, ++now_) {
      const bool open = !on_ || now_ < openUntil_;
      gain_ = std::clamp(gain_ + (open ? attack_ : -release_), 0.0F, 1.0F);
      for (float* channel : output)
        channel[i] *= gain_;
    }
    if (on_) score(input, done, part, settings);
    done += part;
  }
}

void VoiceGate::score(std::span<const float* const> input, std::size_t at, std::size_t count,
                      const Settings& settings) {
  bool known = false;
  bool voice = false;
  for (std::size_t c = 0; c < detectors_.size(); ++c) {
    const std::array<const float*, 1> channel{input[c] + at};
    detectors_[c].process(channel, count, [&](float score) {
      known = true;
      voice |= score >= settings.threshold;
    });
  }
  if (known) scoredTo_ += static_cast<std::int64_t>(detectors_.front().scoreSize());
  if (voice)
    openUntil_ = scoredTo_ + static_cast<std::int64_t>(latency_) +
                 samples(static_cast<double>(settings.holdMs));
}

}  // namespace ORVEL::PLUGINS
