#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "noise_canceller/noise_cleaner.h"
#include "orv-sdk/frame_resampler.h"
#include "utils/non_copyable.h"

namespace ORVEL {

using NOISE_CANCELLER::SessionKind;

/** Rates that a caller's audio may have, Hz. */
inline constexpr std::array kSampleRates{8000,  12000, 16000, 24000, 32000,
                                         44100, 48000, 88200, 96000};
/** What became of a frame. */
enum class FrameResult {
  kDone,
  /** A count or pointer is wrong; nothing was done. */
  kRefused,
  /** The arithmetic failed; the output is silence or a score of 0, the stream goes on. */
  kFailed,
};

/** Durations that a frame may have, ms. */
inline constexpr std::array kFrameDurations{10, 20, 30, 40};

/**
 * One stream of audio: the caller's rate and sample format outside, the model's rate and 16-bit scale
 * inside. Used by one thread at a time; nothing but the constructor allocates.
 */
class OrvSessionT : private UTILS::NonCopyMovable {
 public:
  /** What a session is opened with; rates are among the supported ones. */
  struct Request {
    int inputRate;
    int outputRate;
    int frameDurationMs;
    /** Null for the automatic choice. */
    const char* modelName;
    SessionKind kind;
  };

  /** What a detector is opened with at its output, where it has no samples. */
  static constexpr int kDetectorOutputRate = 16000;

  /** @throws ORVEL_Exception without a fitting model, or for a duration other than 10, 20, 30, 40. */
  OrvSessionT(const WEIGHTS::ModelStore& models, ResamplerCache& resamplers,
              const Request& request);

  /** By the model's version, whatever the session was opened for. */
  SessionKind kind() const { return kind_; }

  /** Samples of one frame, at the caller's rates; a detector has none at its output. */
  std::uint32_t inputSize() const { return inputSize_; }
  std::uint32_t outputSize() const { return outputSize_; }

  template <class Sample>
  FrameResult process(const Sample* input, std::uint32_t inputCount, Sample* output,
                      std::uint32_t outputCount);

  // The parts of `process`, for sessions whose hops are processed together: begin with a frame that the
  // session accepts, the hops of its cleaner, then end.

  /** Whether counts and pointers are those of a frame. */
  bool accepts(const void* input, std::uint32_t inputCount, const void* output,
               std::uint32_t outputCount) const {
    return inputCount == inputSize_ && outputCount == outputSize_ && input != nullptr &&
           output != nullptr;
  }
  template <class Sample>
  void begin(const Sample* input);
  NOISE_CANCELLER::NoiseCleaner& cleaner() { return *cleaner_; }
  template <class Sample>
  FrameResult end(Sample* output);

  /** False when that batch has the session already; batches have numbers above 0. */
  bool joins(std::uint64_t batch) { return std::exchange(lastBatch_, batch) != batch; }

  /** One frame of a voice-activity session to its score. */
  template <class Sample>
  FrameResult score(const Sample* input, std::uint32_t inputCount, float* score);

  /** What the cleaner counts; from any thread. */
  NOISE_CANCELLER::NoiseCleaner::Counts counts() const { return cleaner_->counts(); }

  /** Delay of the whole session, in samples at the output rate. */
  std::uint32_t latency() const;

  /** From the next hop on no bin's gain is below this; 0 for no limit. */
  void setGainFloor(float gain) { cleaner_->setGainFloor(gain); }

  /** True for the first failed frame, which is worth a message. */
  bool failsFirstTime() { return !std::exchange(hasFailed_, true); }

  /** Back to the state as opened; the gain floor stays. Allocates nothing. */
  void reset();

 private:
  bool scoreFrame();
  void convert(FrameResampler& resampler);

  std::shared_ptr<NOISE_CANCELLER::NoiseCleaner> cleaner_;
  std::unique_ptr<FrameResampler> inputResampler_;
  std::unique_ptr<FrameResampler> outputResampler_;
  SessionKind kind_;
  std::uint32_t inputSize_ = 0;
  std::uint32_t outputSize_ = 0;
  std::uint32_t modelRate_ = 0;
  std::uint32_t outputRate_ = 0;
  bool hasFailed_ = false;
  std::uint64_t lastBatch_ = 0;
  std::vector<float> frame_;
  std::vector<float> converted_;
};

}  // namespace ORVEL
