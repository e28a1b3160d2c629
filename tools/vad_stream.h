#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "tools/audio_stream.h"
#include "tools/engine.h"
#include "tools/rate_converter.h"

namespace ORVEL::TOOLS {

/**
 * Scores audio of any rate and channel count (the mean of the channels), one score for each 10 ms of
 * the input. A score stands at the audio it speaks about: the detector's lag is taken out.
 */
class VadStream {
 public:
  using Emit = std::function<void(double score)>;
  VadStream(Engine& engine, const AudioSpec& spec, Emit emit);

  void push(std::span<const float> interleaved);
  /** Scores the rest; the last score may cover less than 10 ms. */
  void finish();

  /** Audio so far, seconds. */
  double seconds() const noexcept;

 private:
  void feed(std::span<const float> samples);
  void runFrame();

  Session session_;
  AudioSpec spec_;
  Emit emit_;
  std::optional<RateConverter> converter_;
  std::uint64_t frames_ = 0;  // pushed, at the audio's rate
  std::int64_t hops_ = 0;     // given to the session
  std::int64_t scores_ = 0;   // given out
  std::vector<float> mono_;
  std::vector<float> converted_;
  std::vector<float> waiting_;
};

/** Scores by which the detector lags behind its audio: 10 ms each. */
inline constexpr int kVadLagHops = 2;

}  // namespace ORVEL::TOOLS
