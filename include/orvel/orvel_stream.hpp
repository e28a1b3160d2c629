/* Streams of ORVEL for C++20, for audio in blocks of any length; include orvel/orvel.hpp. */
#ifndef ORVEL_ORVEL_STREAM_HPP
#define ORVEL_ORVEL_STREAM_HPP

#include <algorithm>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <type_traits>
#include <vector>

#include "orvel/orvel_session.hpp"

namespace orvel {

/** What a StreamCleaner or a VoiceDetector is opened with. */
struct StreamOptions {
  int rate = 0;
  int channels = 1;
  std::string model = {};  ///< empty: chosen as for a Cleaner
};

namespace detail {

/** Samples of each channel in an interleaved block. */
inline std::size_t lengthOf(const char* function, const char* argument, std::size_t samples,
                            std::size_t channels) {
  if (samples % channels != 0) {
    throw Error(1, std::string(function) + ": " + argument + " has " + std::to_string(samples) +
                       " samples, expected a multiple of " + std::to_string(channels) +
                       " channels");
  }
  return samples / channels;
}

inline std::size_t channelsOf(const char* type, int channels) {
  if (channels < 1) {
    throw Error(1, std::string(type) + ": channels is " + std::to_string(channels) +
                       ", expected at least 1");
  }
  return static_cast<std::size_t>(channels);
}

inline float toFloat(float sample) noexcept { return sample; }
inline float toFloat(std::int16_t sample) noexcept {
  return static_cast<float>(sample) * (1.0F / 32768.0F);
}

/** Exact for what a session gives: its output lies in [-1, 32767/32768]. */
template <class Sample>
Sample fromFloat(float sample) noexcept {
  if constexpr (std::is_same_v<Sample, float>) {
    return sample;
  } else {
    return static_cast<Sample>(sample * 32768.0F);
  }
}

}  // namespace detail

/**
 * Removes noise from audio in blocks of any length, from one sample up, that may change from call to
 * call. Every block comes back in its own length. The output is the same whatever the blocks, and late
 * by latency(). Channels are cleaned independently, their frames in one batch.
 */
class StreamCleaner {
 public:
  /** @throws Error when no loaded model fits or an option is out of range. */
  StreamCleaner(const Library& library, const StreamOptions& options) : rate_(options.rate) {
    const std::size_t channels = detail::channelsOf("StreamCleaner", options.channels);
    cleaners_.reserve(channels);
    for (std::size_t c = 0; c < channels; ++c)
      cleaners_.emplace_back(library, CleanerOptions{.inputRate = rate_, .model = options.model});
    frameSize_ = cleaners_.front().inputSize();
    latency_ = frameSize_ - 1 + cleaners_.front().latency();
    buffers_.resize(channels * frameSize_);
    batch_.reserve(channels);
  }
  StreamCleaner(StreamCleaner&&) noexcept = default;
  StreamCleaner& operator=(StreamCleaner&&) noexcept = default;

  /**
   * Cleans an interleaved block.
   *
   * @param input length * channels() samples, full scale +/-1.0; NaN and infinite samples count as 0.
   * @param output as many samples, in [-1, 32767/32768]; may be the input, must not overlap it
   *        otherwise.
   * @throws Error when a length does not fit.
   */
  void process(std::span<const float> input, std::span<float> output) {
    interleaved(input, output);
  }
  /** The same for 16-bit samples. */
  void process(std::span<const std::int16_t> input, std::span<std::int16_t> output) {
    interleaved(input, output);
  }

  /**
   * Cleans a planar block.
   *
   * @param input channels() arrays of `length` samples, full scale +/-1.0.
   * @param output as many; each may be the input of its own channel, and must not overlap any input
   *        otherwise.
   * @throws Error when the number of channels does not fit.
   */
  void process(std::span<const float* const> input, std::span<float* const> output,
               std::size_t length) {
    planar(input, output, length);
  }
  /** The same for 16-bit samples. */
  void process(std::span<const std::int16_t* const> input, std::span<std::int16_t* const> output,
               std::size_t length) {
    planar(input, output, length);
  }

  /** An interleaved block of one of several streams; lengths and overlap as for process. */
  struct Block {
    StreamCleaner& stream;
    std::span<const float> input;
    std::span<float> output;
  };
  /**
   * Cleans blocks of different streams, each once, with the frames of all streams in common batches. The
   * blocks may differ in length; the outputs are those of the streams one by one but for the rounding of
   * floats. Allocates when there are more channels than in any call before.
   *
   * @throws Error when a length does not fit.
   */
  static void process(std::span<const Block> blocks);

  /**
   * Gives what is still on its way, by going on with silence. After latency() samples, in one call or
   * in several, the whole input has come out. reset() then begins a new stream.
   *
   * @param output interleaved, any multiple of channels().
   * @throws Error when it is none.
   */
  void flush(std::span<float> output) { flushInterleaved(output); }
  /** The same for 16-bit samples. */
  void flush(std::span<std::int16_t> output) { flushInterleaved(output); }
  /** The same for planar output. @throws Error when the number of channels does not fit. */
  void flush(std::span<float* const> output, std::size_t length) { flushPlanar(output, length); }
  /** The same for planar 16-bit output. */
  void flush(std::span<std::int16_t* const> output, std::size_t length) {
    flushPlanar(output, length);
  }

  /** Begins a new stream: as newly created, but for the attenuation limit. */
  void reset() {
    for (Cleaner& cleaner : cleaners_)
      cleaner.reset();
    std::fill(buffers_.begin(), buffers_.end(), 0.0F);
    position_ = 0;
  }
  /** As Cleaner::setAttenuationLimit, for all channels. */
  void setAttenuationLimit(float decibels) {
    for (Cleaner& cleaner : cleaners_)
      cleaner.setAttenuationLimit(decibels);
  }

  int rate() const noexcept { return rate_; }
  std::size_t channels() const noexcept { return cleaners_.size(); }
  /** Samples by which the output lags behind the input, whatever the blocks: the session's own latency
   * and 10 ms less one sample to gather a frame. */
  std::size_t latency() const noexcept { return latency_; }

 private:
  // Not quite digital silence, which a cleaner may let pass as it is together with what it still
  // holds of the signal.
  static constexpr float kAlmostSilent = 1e-9F;

  template <class Sample>
  std::size_t blockLength(std::span<const Sample> input, std::size_t outputSize) const {
    const std::size_t length =
        detail::lengthOf("StreamCleaner::process", "input", input.size(), channels());
    detail::requireSize("StreamCleaner::process", "output", outputSize, input.size());
    return length;
  }
  template <class Sample>
  void interleaved(std::span<const Sample> input, std::span<Sample> output) {
    run(blockLength(input, output.size()), fromInterleaved(input), toInterleaved(output));
  }
  template <class Sample>
  void planar(std::span<const Sample* const> input, std::span<Sample* const> output,
              std::size_t length) {
    detail::requireSize("StreamCleaner::process", "input", input.size(), channels(), " channels");
    detail::requireSize("StreamCleaner::process", "output", output.size(), channels(), " channels");
    run(
        length, [&](std::size_t c, std::size_t i) { return detail::toFloat(input[c][i]); },
        toPlanar(output));
  }
  template <class Sample>
  void flushInterleaved(std::span<Sample> output) {
    const std::size_t length =
        detail::lengthOf("StreamCleaner::flush", "output", output.size(), channels());
    run(length, almostSilent, toInterleaved(output));
  }
  template <class Sample>
  void flushPlanar(std::span<Sample* const> output, std::size_t length) {
    detail::requireSize("StreamCleaner::flush", "output", output.size(), channels(), " channels");
    run(length, almostSilent, toPlanar(output));
  }

  static float almostSilent(std::size_t /*channel*/, std::size_t /*frame*/) noexcept {
    return kAlmostSilent;
  }
  template <class Sample>
  auto fromInterleaved(std::span<const Sample> input) const noexcept {
    return [input, channels = channels()](std::size_t c, std::size_t i) {
      return detail::toFloat(input[i * channels + c]);
    };
  }
  template <class Sample>
  auto toInterleaved(std::span<Sample> output) const noexcept {
    return [output, channels = channels()](std::size_t c, std::size_t i, float sample) {
      output[i * channels + c] = detail::fromFloat<Sample>(sample);
    };
  }
  template <class Sample>
  static auto toPlanar(std::span<Sample* const> output) noexcept {
    return [output](std::size_t c, std::size_t i, float sample) {
      output[c][i] = detail::fromFloat<Sample>(sample);
    };
  }

  // One buffer per channel holds new samples before position_ and cleaned ones, not given out yet,
  // behind it. A sample that comes in takes the place of the one that went out in the call before, so
  // that the delay is one sample short of the buffer's length.
  template <class Read, class Write>
  void run(std::size_t length, Read read, Write write) {
    done_ = 0;
    while (advance(length, read, write)) {
      addFrames(batch_);
      batch_.process();
      complete(write);
    }
  }
  // Goes on until the block ends or the buffers are full, whose last samples go out once they are cleaned.
  template <class Read, class Write>
  bool advance(std::size_t length, Read read, Write write) {
    const std::size_t count = std::min(frameSize_ - position_, length - done_);
    full_ = position_ + count == frameSize_;
    const std::size_t plain = full_ ? count - 1 : count;
    for (std::size_t c = 0; c < cleaners_.size(); ++c) {
      float* place = buffers_.data() + c * frameSize_ + position_;
      for (std::size_t i = 0; i < plain; ++i) {
        const float sample = read(c, done_ + i);
        write(c, done_ + i, place[i + 1]);
        place[i] = sample;
      }
      if (full_) place[plain] = read(c, done_ + plain);
    }
    position_ += plain;
    done_ += plain;
    return full_;
  }
  void addFrames(CleanerBatch<float>& batch) {
    for (std::size_t c = 0; c < cleaners_.size(); ++c) {
      const std::span<float> buffer(buffers_.data() + c * frameSize_, frameSize_);
      batch.add(cleaners_[c], buffer, buffer);
    }
  }
  template <class Write>
  void complete(Write write) {
    for (std::size_t c = 0; c < cleaners_.size(); ++c)
      write(c, done_, buffers_[c * frameSize_]);
    ++done_;
    position_ = 0;
    full_ = false;
  }

  int rate_;
  std::size_t frameSize_ = 0;
  std::size_t latency_ = 0;
  std::size_t position_ = 0;
  std::size_t done_ = 0;  // samples of the current block
  bool full_ = false;     // the buffers wait to be cleaned
  std::vector<Cleaner> cleaners_;
  std::vector<float> buffers_;  // frameSize_ samples per channel
  CleanerBatch<float> batch_;
};

inline void StreamCleaner::process(std::span<const Block> blocks) {
  for (const Block& block : blocks) {
    block.stream.blockLength(block.input, block.output.size());
    block.stream.done_ = 0;
  }
  if (blocks.empty()) return;
  CleanerBatch<float>& batch = blocks.front().stream.batch_;
  while (true) {
    for (const Block& block : blocks) {
      StreamCleaner& stream = block.stream;
      if (stream.advance(block.input.size() / stream.channels(),
                         stream.fromInterleaved(block.input), stream.toInterleaved(block.output)))
        stream.addFrames(batch);
    }
    if (batch.empty()) return;
    batch.process();
    for (const Block& block : blocks)
      if (block.stream.full_) block.stream.complete(block.stream.toInterleaved(block.output));
  }
}

/**
 * Scores voice activity in audio that comes in blocks of any length: one score for each 10 ms. Several
 * channels are averaged. Score number n, from 0, tells about the audio between n * 10 ms and
 * (n + 1) * 10 ms; it is given out once the audio up to (n + 3) * 10 ms has come in. Where the rate is
 * not the model's own, scores lag by about 3 ms more.
 */
class VoiceDetector {
 public:
  /** @throws Error when no loaded model fits or an option is out of range. */
  VoiceDetector(const Library& library, const StreamOptions& options)
      : channels_(detail::channelsOf("VoiceDetector", options.channels)),
        detector_(library, {.rate = options.rate, .model = options.model}),
        buffer_(detector_.frameSize()) {}

  /**
   * Takes an interleaved block and gives the scores that became known.
   *
   * @param input length * channels() samples, full scale +/-1.0; a mean of channels that is NaN
   *        or infinite counts as 0.
   * @param onScore called as onScore(float) for each score, in order.
   * @throws Error when the length is no multiple of channels().
   */
  template <std::invocable<float> OnScore>
  void process(std::span<const float> input, OnScore&& onScore) {
    interleaved(input, onScore);
  }
  /** The same for 16-bit samples. */
  template <std::invocable<float> OnScore>
  void process(std::span<const std::int16_t> input, OnScore&& onScore) {
    interleaved(input, onScore);
  }
  /** The same for a planar block: channels() arrays of `length` samples. */
  template <std::invocable<float> OnScore>
  void process(std::span<const float* const> input, std::size_t length, OnScore&& onScore) {
    detail::requireSize("VoiceDetector::process", "input", input.size(), channels_, " channels");
    run(
        length, [&](std::size_t c, std::size_t i) { return input[c][i]; }, onScore);
  }

  /**
   * Takes an interleaved block and stores the scores that became known.
   *
   * @param scores has room for scoresAfter(length) values.
   * @return how many were stored.
   * @throws Error when a length does not fit.
   */
  std::size_t process(std::span<const float> input, std::span<float> scores) {
    return stored(input, scores);
  }
  /** The same for 16-bit samples. */
  std::size_t process(std::span<const std::int16_t> input, std::span<float> scores) {
    return stored(input, scores);
  }

  /** Gives the scores that are still due, three at most, so that all audio has one; the last may tell
   * about less than 10 ms. reset() then begins a new stream. */
  template <std::invocable<float> OnScore>
  void flush(OnScore&& onScore) {
    while (given_ * buffer_.size() < taken_) {
      std::fill(buffer_.begin() + static_cast<std::ptrdiff_t>(position_), buffer_.end(), 0.0F);
      scoreBuffer(onScore);
    }
  }
  /** The same into an array. @param scores room for three. @return how many were stored. */
  std::size_t flush(std::span<float> scores) {
    requireRoom("VoiceDetector::flush", scores.size(), dueAtEnd());
    std::size_t count = 0;
    flush([&](float score) { scores[count++] = score; });
    return count;
  }

  /** Scores that the next process gives for a block of that length. */
  std::size_t scoresAfter(std::size_t length) const noexcept {
    const std::uint64_t hops = hops_ + (position_ + length) / buffer_.size();
    return static_cast<std::size_t>(hops - std::min<std::uint64_t>(hops, kLagHops) - given_);
  }

  /** Begins a new stream, as newly created. */
  void reset() {
    detector_.reset();
    taken_ = hops_ = given_ = 0;
    position_ = 0;
  }

  int rate() const noexcept { return detector_.rate(); }
  std::size_t channels() const noexcept { return channels_; }
  /** Samples that one score stands for: 10 ms. */
  std::size_t scoreSize() const noexcept { return buffer_.size(); }

 private:
  static constexpr std::uint64_t kLagHops = Detector::kLagMs / 10;

  static void requireRoom(const char* function, std::size_t room, std::size_t wanted) {
    if (room >= wanted) return;
    throw Error(1, std::string(function) + ": scores has room for " + std::to_string(room) +
                       ", expected at least " + std::to_string(wanted));
  }
  std::size_t dueAtEnd() const noexcept {
    const std::uint64_t all = (taken_ + buffer_.size() - 1) / buffer_.size();
    return static_cast<std::size_t>(all - std::min(all, given_));
  }

  template <class Sample, class OnScore>
  void interleaved(std::span<const Sample> input, OnScore& onScore) {
    const std::size_t length =
        detail::lengthOf("VoiceDetector::process", "input", input.size(), channels_);
    run(
        length,
        [&](std::size_t c, std::size_t i) { return detail::toFloat(input[i * channels_ + c]); },
        onScore);
  }
  template <class Sample>
  std::size_t stored(std::span<const Sample> input, std::span<float> scores) {
    const std::size_t length =
        detail::lengthOf("VoiceDetector::process", "input", input.size(), channels_);
    requireRoom("VoiceDetector::process", scores.size(), scoresAfter(length));
    std::size_t count = 0;
    const auto store = [&](float score) { scores[count++] = score; };
    interleaved(input, store);
    return count;
  }

  template <class Read, class OnScore>
  void run(std::size_t length, Read read, OnScore& onScore) {
    for (std::size_t i = 0; i < length; ++i) {
      float sum = 0.0F;
      for (std::size_t c = 0; c < channels_; ++c)
        sum += read(c, i);
      buffer_[position_++] = sum / static_cast<float>(channels_);
      ++taken_;
      if (position_ == buffer_.size()) scoreBuffer(onScore);
    }
  }
  template <class OnScore>
  void scoreBuffer(OnScore& onScore) {
    position_ = 0;
    const float score = detector_.process(std::span<const float>(buffer_));
    if (hops_++ < kLagHops) return;
    ++given_;
    onScore(score);
  }

  std::size_t channels_;
  std::uint64_t taken_ = 0;   // samples
  std::uint64_t hops_ = 0;    // scored by the detector
  std::uint64_t given_ = 0;   // scores given out
  std::size_t position_ = 0;  // in the buffer
  Detector detector_;
  std::vector<float> buffer_;
};

}  // namespace orvel

#endif  // ORVEL_ORVEL_STREAM_HPP
