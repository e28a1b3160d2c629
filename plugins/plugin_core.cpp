#include "plugins/plugin_core.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "utils/floating_point_mode.h"

namespace ORVEL::PLUGINS {
namespace {

constexpr float kFadeSeconds = 0.02F;
// More than any float can hold as a gain.
constexpr float kUnlimitedDb = 1000.0F;

int checkedRate(double rate) {
  if (rate >= PluginCore::kLowestRate && rate <= PluginCore::kHighestRate)
    return static_cast<int>(std::lround(rate));
  throw orvel::Error(1, "the host's rate is " + std::to_string(rate) + " Hz, expected " +
                            std::to_string(PluginCore::kLowestRate) + " to " +
                            std::to_string(PluginCore::kHighestRate));
}

std::vector<RateBridge> bridges(int rate, std::size_t channels, std::size_t block) {
  std::vector<RateBridge> made;
  for (std::size_t c = 0; c < channels; ++c)
    made.emplace_back(rate, sessionRate(rate), block);
  return made;
}

float limited(float value, float low, float high, float otherwise) noexcept {
  return std::isnan(value) ? otherwise : std::clamp(value, low, high);
}

VoiceGate::Settings limited(const VoiceGate::Settings& gate) noexcept {
  const VoiceGate::Settings usual;
  return {gate.on, limited(gate.threshold, 0.0F, 1.0F, usual.threshold),
          limited(gate.holdMs, 0.0F, 10000.0F, usual.holdMs)};
}

}  // namespace

PluginCore::PluginCore(double rate, std::size_t channels)
    : rate_(checkedRate(rate)),
      models_(loadModels(rate_)),
      bridges_(bridges(rate_, channels, kBlock)),
      cleaner_(models_.library, {sessionRate(rate_), static_cast<int>(channels), models_.cleaner}),
      fade_(1.0F / (kFadeSeconds * static_cast<float>(rate_))) {
  std::size_t sessionLatency = cleaner_.latency();
  if (channels == LinkedGain::kSides) {
    link_.emplace(cleaner_.rate());
    plain_.assign(channels, DelayLine(sessionLatency));
    sessionLatency += link_->latency();
  }
  if (models_.detector)
    gate_.emplace(
        models_.library,
        orvel::StreamOptions{cleaner_.rate(), static_cast<int>(channels), *models_.detector},
        sessionLatency);
  latency_ = static_cast<std::size_t>(std::lround(
      static_cast<double>(sessionLatency) * rate_ / cleaner_.rate() + bridges_.front().delay()));
  dry_.assign(channels, DelayLine(latency_));
  for (std::size_t c = 0; c < channels; ++c) {
    work_[c].resize(bridges_[c].mostSessionSamples());
    plainWork_[c].resize(work_[c].size());
    sessionIn_[c] = work_[c].data();
    sessionOut_[c] = bridges_[c].samples();
  }
}

void PluginCore::reset() {
  cleaner_.reset();
  if (link_) link_->reset();
  if (gate_) gate_->reset();
  for (RateBridge& bridge : bridges_)
    bridge.reset();
  for (std::vector<DelayLine>* lines : {&plain_, &dry_})
    for (DelayLine& line : *lines)
      line.reset();
}

void PluginCore::setLimit(float decibels) {
  decibels = limited(decibels, 0.0F, Controls::kNoLimitDb, Controls::kNoLimitDb);
  if (decibels == limitDb_) return;
  limitDb_ = decibels;
  cleaner_.setAttenuationLimit(decibels < Controls::kNoLimitDb ? decibels : kUnlimitedDb);
}

// From in_ to wet_.
void PluginCore::clean(std::size_t count, const Controls& controls) {
  setLimit(controls.attenuationLimitDb);
  std::size_t session = 0;
  for (std::size_t c = 0; c < channels(); ++c) {
    session = bridges_[c].give(in_[c].data(), count);
    std::copy_n(bridges_[c].samples(), session, work_[c].begin());
  }
  const std::span<const float* const> in(sessionIn_.data(), channels());
  const std::span<float* const> out(sessionOut_.data(), channels());
  cleaner_.process(in, out, session);
  // The gate scores the input: it comes after the link, whose lag is part of the gate's lead.
  if (link_) {
    std::array<const float*, kMostChannels> plain{};
    for (std::size_t c = 0; c < channels(); ++c) {
      plain_[c].process(in[c], plainWork_[c].data(), session);
      plain[c] = plainWork_[c].data();
    }
    link_->process(plain, sessionOut_, session);
  }
  if (gate_) gate_->process(in, out, session, limited(controls.gate));
  for (std::size_t c = 0; c < channels(); ++c)
    bridges_[c].take(wet_[c].data());
}

void PluginCore::process(const float* const* input, float* const* output, std::size_t count,
                         const Controls& controls) noexcept {
  const UTILS::FloatingPointMode mode(UTILS::FloatingPointMode::Denormals::kZero);
  for (std::size_t done = 0; done < count;) {
    const std::size_t part = std::min(count - done, kBlock);
    // All channels are read before any is written: an output may be the input of another channel.
    for (std::size_t c = 0; c < channels(); ++c)
      std::copy_n(input[c] + done, part, in_[c].begin());
    bool failed = false;
    try {
      clean(part, controls);
    } catch (...) {
      failed = true;  // lengths fit and models were tried: only the arithmetic itself can fail
    }
    const float target = controls.bypass || failed ? 0.0F : 1.0F;
    float wetness = wetness_;
    for (std::size_t c = 0; c < channels(); ++c) {
      dry_[c].process(in_[c].data(), in_[c].data(), part);
      wetness = wetness_;
      for (std::size_t i = 0; i < part; ++i) {
        wetness += std::clamp(target - wetness, -fade_, fade_);
        const float dry = in_[c][i];
        const float wet = wet_[c][i];
        // An input that is NaN must not reach the cleaned output.
        output[c][done + i] = wetness == 1.0F   ? wet
                              : wetness == 0.0F ? dry
                                                : dry + wetness * (wet - dry);
      }
    }
    wetness_ = wetness;
    done += part;
  }
}

}  // namespace ORVEL::PLUGINS
