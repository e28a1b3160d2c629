#include "tools/vad_segments.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace ORVEL::TOOLS {
namespace {

constexpr double kHysteresis = 0.05;
constexpr double kLowestNegative = 0.01;
constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max() / 4;

double seconds(std::int64_t milliseconds) { return static_cast<double>(milliseconds) / 1000.0; }

}  // namespace

double Segmenter::Stretch::meanScore() const {
  return sum * kScoreMs / static_cast<double>(std::max<std::int64_t>(end - begin, kScoreMs));
}

Segmenter::Segmenter(const SegmentOptions& options, Emit emit)
    : options_(options),
      negativeThreshold_(options.negativeThreshold.value_or(
          std::max(options.threshold - kHysteresis, kLowestNegative))),
      emit_(std::move(emit)) {}

void Segmenter::push(double score) {
  const std::int64_t begin = now_;
  now_ += kScoreMs;
  if (!current_) {
    if (score >= options_.threshold) {
      current_ = Stretch{begin, now_, score};
    } else if (held_ && now_ - held_->end >= 2 * std::int64_t{options_.paddingMs}) {
      release(kNever, kNever);
    }
    return;
  }
  if (score >= options_.threshold) {
    sure_.reset();
  }
  if (score < negativeThreshold_ && !sure_) {
    sure_ = current_;
  }
  current_->end = now_;
  current_->sum += score;
  if (sure_ && now_ - sure_->end >= options_.minimumSilenceMs) {
    close(*sure_);
    current_.reset();
    sure_.reset();
  }
}

void Segmenter::finish(double secondsOfAudio) {
  const auto length = static_cast<std::int64_t>(std::llround(secondsOfAudio * 1000.0));
  if (current_) {
    Stretch last = sure_ ? *sure_ : *current_;
    last.end = std::min(last.end, std::max(length, last.begin));
    close(last);
  }
  current_.reset();
  sure_.reset();
  if (held_) {
    release(kNever, length);
  }
}

void Segmenter::close(const Stretch& stretch) {
  if (stretch.end - stretch.begin < options_.minimumSpeechMs) {
    return;
  }
  std::int64_t room = std::min<std::int64_t>(options_.paddingMs, stretch.begin);
  if (held_) {
    const std::int64_t gap = stretch.begin - held_->end;
    room = std::min<std::int64_t>(options_.paddingMs, gap / 2);
    release(gap, kNever);
  }
  held_ = stretch;
  paddedStart_ = stretch.begin - room;
}

void Segmenter::release(std::int64_t gapToNext, std::int64_t latestEnd) {
  const std::int64_t padding = std::min<std::int64_t>(options_.paddingMs, gapToNext / 2);
  const std::int64_t end = std::min(held_->end + padding, std::max(latestEnd, held_->end));
  emit_({seconds(paddedStart_), seconds(end), held_->meanScore()});
  held_.reset();
}

}  // namespace ORVEL::TOOLS
