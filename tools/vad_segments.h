#pragma once

#include <cstdint>
#include <functional>
#include <optional>

namespace ORVEL::TOOLS {

/** One score stands for this much audio. */
inline constexpr int kScoreMs = 10;

/**
 * How scores become segments. Times in milliseconds. The defaults are those that tell speech best by
 * time on held-out minutes in changing noise.
 */
struct SegmentOptions {
  double threshold = 0.55;  ///< speech begins at a score of at least this
  /** Speech ends below this; nothing: 0.05 below the threshold, at least 0.01. */
  std::optional<double> negativeThreshold;
  int minimumSpeechMs = 150;   ///< shorter speech is dropped
  int minimumSilenceMs = 200;  ///< shorter pauses do not end a segment
  int paddingMs = 20;          ///< added at both ends; two neighbours share a short gap
};

/** A stretch of speech, in seconds from the start of the audio. */
struct Segment {
  double start = 0.0;
  double end = 0.0;
  double meanScore = 0.0;  ///< over the segment without its padding
};

/**
 * Turns a stream of scores into segments, each given out as soon as nothing later can change it.
 */
class Segmenter {
 public:
  using Emit = std::function<void(const Segment&)>;
  Segmenter(const SegmentOptions& options, Emit emit);

  /** The next score. */
  void push(double score);
  /** The end of the audio, which lasted `seconds`. */
  void finish(double seconds);

 private:
  struct Stretch {
    std::int64_t begin = 0;  // milliseconds
    std::int64_t end = 0;
    double sum = 0.0;  // of the scores inside
    double meanScore() const;
  };

  void close(const Stretch& stretch);
  void release(std::int64_t gapToNext, std::int64_t latestEnd);

  SegmentOptions options_;
  double negativeThreshold_;
  Emit emit_;
  std::int64_t now_ = 0;            // end of the newest score
  std::optional<Stretch> current_;  // speech that may still go on; its end is the newest score's
  std::optional<Stretch> sure_;     // the part of it before the pause that has begun
  std::optional<Stretch> held_;     // finished, waits to know how much padding there is room for
  std::int64_t paddedStart_ = 0;    // of held_
};

}  // namespace ORVEL::TOOLS
