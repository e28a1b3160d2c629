#pragma once

#include <soxr.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "orvel/orvel.hpp"
#include "tools/audio.h"

namespace ORVEL::TOOLS {

/** Converts interleaved audio between two sample rates, without shifting it in time. */
class RateConverter {
 public:
  /** @throws ToolError (kInternal) when the two rates (Hz) cannot be converted. */
  RateConverter(int inputRate, int outputRate, std::size_t channels);

  /** Appends what the input gives so far; some of it is held back until more arrives. */
  void push(std::span<const float> input, std::vector<float>& output);
  /** Appends what was held back. Nothing may be pushed after it. */
  void finish(std::vector<float>& output);

 private:
  struct Deleter {
    void operator()(soxr_t handle) const noexcept { soxr_delete(handle); }
  };
  std::size_t step(const float* input, std::size_t frames, std::vector<float>& output, bool& idle);

  std::size_t channels_;
  std::unique_ptr<soxr, Deleter> handle_;
};

/** Moves interleaved audio by a part of a sample, by a windowed sinc. */
class FractionalDelay {
 public:
  /** Frames by which the output lags in addition to the part of a sample. */
  static constexpr std::size_t kWholeDelay = 32;

  /** @param delay samples, from -0.5 to 0.5; below 0 the output comes earlier. */
  FractionalDelay(double delay, std::size_t channels);

  /** Replaces the samples of whole frames by as many delayed ones. */
  void process(std::span<float> interleaved);

 private:
  std::size_t channels_;
  std::vector<float> taps_;     // latest sample first
  std::vector<float> history_;  // the frames before the span, then the span
};

/** How a recording is cleaned. */
struct CleanerSetup {
  AudioSpec spec;
  std::string model;
  std::optional<float> attenuationLimitDb;
};

/**
 * Cleans interleaved audio of any rate, channel count and length: converts rates that the library does
 * not take, takes the whole latency out and flushes the tail, so that the output is as long as the
 * input and lies where the input lay.
 */
class AlignedCleaner {
 public:
  /** @throws orvel::Error when no session can be opened. */
  AlignedCleaner(const orvel::Library& library, const CleanerSetup& setup);

  /** Takes interleaved frames and gives the block that is to be cleaned, alone or with those of others. */
  orvel::StreamCleaner::Block push(std::span<const float> interleaved);
  /** After the block: appends the interleaved frames that are ready to `output`. */
  void collect(std::vector<float>& output);
  /** Appends the rest. Input and output then have the same number of frames. */
  void finish(std::vector<float>& output);

  /** Rate at which the library is given the audio, Hz. */
  int sessionRate() const noexcept { return cleaner_.rate(); }
  /** Lag that is taken out, in samples at sessionRate(). */
  double lag() const noexcept { return lag_; }

 private:
  orvel::StreamCleaner::Block feed(std::span<const float> atSessionRate);
  void deliver(std::span<float> cleaned, std::vector<float>& output);

  std::size_t channels_;
  orvel::StreamCleaner cleaner_;
  std::optional<RateConverter> toSession_;
  std::optional<RateConverter> fromSession_;
  std::optional<FractionalDelay> fraction_;
  double lag_ = 0.0;
  // Frames; the last two at the session's rate.
  std::uint64_t pushed_ = 0;
  std::uint64_t given_ = 0;
  std::uint64_t due_ = 0;   // fed and not delivered yet
  std::uint64_t skip_ = 0;  // still to be dropped at the front
  std::vector<float> block_;
  std::vector<float> converted_;
  std::vector<float> cleaned_;
};

/** The rate at which the library is given audio of a rate: its own where the library takes it, else the
 * next of 8, 16, 32, 48 and 96 kHz. */
int sessionRate(int audioRate) noexcept;

}  // namespace ORVEL::TOOLS
