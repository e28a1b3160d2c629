#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <vector>

#include "orvel/orvel.hpp"
#include "plugins/delay_line.h"
#include "plugins/linked_gain.h"
#include "plugins/models.h"
#include "plugins/rate_bridge.h"
#include "plugins/voice_gate.h"

namespace ORVEL::PLUGINS {

/** What a host can set while audio runs. Values out of range are limited, NaN counts as the default. */
struct Controls {
  static constexpr float kNoLimitDb = 100.0F;

  float attenuationLimitDb = kNoLimitDb;  ///< from 0; kNoLimitDb: no limit
  bool bypass = false;
  VoiceGate::Settings gate = {};
};

/**
 * What every plugin of ORVEL does, whatever its format: cleans one channel, or two with one gain. Each core
 * has a context of its own. Made and destroyed off the audio thread; process() is real-time safe.
 */
class PluginCore {
 public:
  static constexpr int kLowestRate = 8000;
  static constexpr int kHighestRate = 192000;
  static constexpr std::size_t kMostChannels = LinkedGain::kSides;

  /** @param rate Hz. @param channels 1 or 2. @throws std::exception saying why it cannot work. */
  PluginCore(double rate, std::size_t channels);

  /** Samples by which the output lags behind the input; the same for all settings. */
  std::size_t latency() const noexcept { return latency_; }
  std::size_t channels() const noexcept { return bridges_.size(); }
  /** Whether there is a detector for the gate. */
  bool hasGate() const noexcept { return gate_.has_value(); }

  /**
   * Cleans a block of any length, 0 included. Bypassing fades to the delayed input within 20 ms and then gives
   * exactly that.
   *
   * @param input,output channels() arrays of `count` samples, full scale +/-1.0; an output may be any input.
   */
  void process(const float* const* input, float* const* output, std::size_t count,
               const Controls& controls) noexcept;
  /** Begins a new stream. Not for the audio thread. */
  void reset();

 private:
  static constexpr std::size_t kBlock = 256;  // host samples that are worked on at once
  using Block = std::array<float, kBlock>;

  void setLimit(float decibels);
  void clean(std::size_t count, const Controls& controls);

  int rate_;
  InstanceModels models_;
  std::vector<RateBridge> bridges_;
  orvel::StreamCleaner cleaner_;
  std::optional<LinkedGain> link_;  // two channels only
  std::optional<VoiceGate> gate_;
  std::vector<DelayLine> plain_;  // the session's input, in time with what the cleaner gives
  std::vector<DelayLine> dry_;    // the host's input, in time with the output
  std::size_t latency_ = 0;
  float limitDb_ = Controls::kNoLimitDb;
  float wetness_ = 1.0F;  // 0: bypassed
  float fade_;            // change per sample
  std::array<Block, kMostChannels> in_{}, wet_{};
  std::array<std::vector<float>, kMostChannels> work_, plainWork_;
  std::array<const float*, kMostChannels> sessionIn_{};
  std::array<float*, kMostChannels> sessionOut_{};
};

}  // namespace ORVEL::PLUGINS
