#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "orvel/orvel.hpp"
#include "tools/aligned_cleaner.h"
#include "tools/audio.h"
#include "tools/models.h"

namespace ORVEL::TOOLS {

/** Appends the mean of the channels of interleaved frames. */
void appendMean(std::span<const float> interleaved, int channels, std::vector<float>& mean);

/**
 * Scores audio of any rate and channel count (the mean of the channels), one score for each 10 ms of
 * the input.
 */
class VoiceScorer {
 public:
  using Emit = std::function<void(double score)>;
  /** @param models of voice activity. @throws orvel::Error when no session can be opened. */
  VoiceScorer(const ModelSet& models, const AudioSpec& spec, Emit emit);

  /** Takes interleaved frames. */
  void push(std::span<const float> interleaved);
  /** Scores the rest; the last score may cover less than 10 ms. */
  void finish();
  /** Audio so far, seconds. */
  double seconds() const noexcept { return static_cast<double>(frames_) / spec_.sampleRate; }

 private:
  VoiceScorer(const orvel::Library& library, const orvel::Model& model, const AudioSpec& spec,
              Emit emit);
  void score(std::span<const float> samples);
  void give(float value);

  orvel::VoiceDetector detector_;
  AudioSpec spec_;
  Emit emit_;
  std::optional<RateConverter> converter_;
  std::uint64_t frames_ = 0;  // pushed, at the audio's rate
  std::uint64_t heard_ = 0;   // samples given to the detector
  std::uint64_t given_ = 0;   // scores
  std::vector<float> mono_;
  std::vector<float> converted_;
};

}  // namespace ORVEL::TOOLS
