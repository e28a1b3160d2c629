#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "orvel/orvel.hpp"

namespace ORVEL::PLUGINS {

/** Mutes audio in which nobody speaks. */
class VoiceGate {
 public:
  struct Settings {
    bool on = false;
    float threshold = 0.55F;  ///< score from which on it counts as speech
    float holdMs = 300.0F;    ///< for which the gate stays open after speech
  };

  /** @param latency samples by which the audio that is muted lags behind that which is scored.
   * @throws orvel::Error when no detector can be opened. */
  VoiceGate(const orvel::Library& library, const orvel::StreamOptions& options,
            std::size_t latency);

  /**
   * Scores each channel of the input, the loudest voice counting, and fades the delayed output in or out.
   * The scores are known before the delayed audio comes, so the gate opens ahead of the voice. Where it
   * is off nothing is scored.
   *
   * Real-time safe. @throws Error never for as many channels as it was made for.
   */
  void process(std::span<const float* const> input, std::span<float* const> output,
               std::size_t count, const Settings& settings);
  void reset();

 private:
  void begin(const Settings& settings);
  void score(std::span<const float* const> input, std::size_t at, std::size_t count,
             const Settings& settings);
  std::int64_t samples(double milliseconds) const noexcept;

  int rate_;
  std::size_t latency_;
  float attack_, release_;  // change of the gain per sample
  float gain_ = 1.0F;
  bool on_ = false;
  std::int64_t now_ = 0;        // samples taken
  std::int64_t openUntil_ = 0;  // in the same count
  std::int64_t scoredTo_ = 0;   // end of the audio that has scores
  std::vector<orvel::VoiceDetector> detectors_;
};

}  // namespace ORVEL::PLUGINS
