#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "tools/audio_stream.h"
#include "tools/engine.h"
#include "tools/fractional_delay.h"
#include "tools/rate_converter.h"
#include "tools/session_delay.h"

namespace ORVEL::TOOLS {

/**
 * Cleans one channel of any length: converts rates outside the library where needed, cuts frames,
 * takes the session's latency out and flushes its tail, so that the output is as long as the input
 * and aligned with it.
 */
class ChannelCleaner {
 public:
  /** @param delay of sessions like this one. */
  ChannelCleaner(Session session, const SessionDelay& delay, int audioRate,
                 std::optional<float> attenuationLimitDb);

  /** Appends the samples that are ready to `output`. */
  void push(std::span<const float> input, std::vector<float>& output);
  /** Appends the rest. */
  void finish(std::vector<float>& output);

 private:
  void feed(std::span<const float> atSessionRate, std::vector<float>& output);
  void runFrame(std::vector<float>& output);

  Session session_;
  std::optional<RateConverter> toSession_;
  std::optional<RateConverter> fromSession_;
  std::optional<FractionalDelay> fraction_;
  std::uint64_t skip_ = 0;     // session samples still to be dropped at the front
  std::uint64_t pushed_ = 0;   // samples in, at the audio's rate
  std::uint64_t given_ = 0;    // samples out, at the audio's rate
  std::uint64_t fed_ = 0;      // real samples given to the session
  std::uint64_t cleaned_ = 0;  // samples it gave back, less the latency
  std::vector<float> waiting_;
  std::vector<float> frame_;
  std::vector<float> converted_;
  std::vector<float> result_;
};

/** Cleans interleaved audio of any rate and channel count, one session per channel. */
class StreamCleaner {
 public:
  StreamCleaner(Engine& engine, const AudioSpec& spec, std::optional<float> attenuationLimitDb);

  /** Appends the interleaved frames that are ready to `output`. */
  void push(std::span<const float> interleaved, std::vector<float>& output);
  /** Appends the rest. Input and output then have the same number of frames. */
  void finish(std::vector<float>& output);

  /** Rate at which the library works on the audio, Hz. */
  int sessionRate() const noexcept { return sessionRate_; }
  /** Lag that is taken out, in samples at sessionRate(). */
  const SessionDelay& sessionDelay() const noexcept { return delay_; }

 private:
  void interleave(std::vector<float>& output);

  std::vector<ChannelCleaner> channels_;
  std::vector<std::vector<float>> outputs_;  // one per channel, always of one length
  std::vector<float> channel_;
  int sessionRate_ = 0;
  SessionDelay delay_;
};

}  // namespace ORVEL::TOOLS
