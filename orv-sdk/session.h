#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "noise_canceller/noise_cleaner.h"
#include "orv-sdk/frame_resampler.h"
#include "utils/non_copyable.h"

namespace ORVEL {

using NOISE_CANCELLER::SessionKind;

/**
 * One stream of audio: the caller's rate and sample format outside, the model's rate and 16-bit scale
 * inside. Used by one thread at a time; the process functions allocate nothing.
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

  /** @throws ORVEL_Exception without a fitting model, or for a duration other than 10, 20, 30, 40. */
  OrvSessionT(const WEIGHTS::ModelStore& models, ResamplerCache& resamplers,
              const Request& request);

  /** By the model's version, whatever the session was opened for. */
  SessionKind kind() const { return kind_; }

  /** One frame; false, with a message, when a count or pointer is wrong. */
  bool processInt16(const std::int16_t* input, std::uint32_t inputCount, std::int16_t* output,
                    std::uint32_t outputCount);
  bool processFloat(const float* input, std::uint32_t inputCount, float* output,
                    std::uint32_t outputCount);

  /** One frame of a voice-activity session to its score. */
  bool scoreInt16(const std::int16_t* input, std::uint32_t inputCount, float* score);
  bool scoreFloat(const float* input, std::uint32_t inputCount, float* score);

  /** Delay of the whole session, in samples at the output rate. */
  std::uint32_t latency() const;

  /** From the next hop on no bin's gain is below this; 0 for no limit. */
  void setGainFloor(float gain) { cleaner_->setGainFloor(gain); }

 private:
  struct Conversions;

  void cleanFrame();
  float scoreFrame();
  void convert(FrameResampler& resampler);

  std::shared_ptr<NOISE_CANCELLER::NoiseCleaner> cleaner_;
  std::unique_ptr<FrameResampler> inputResampler_;
  std::unique_ptr<FrameResampler> outputResampler_;
  SessionKind kind_;
  std::uint32_t inputSize_ = 0;
  std::uint32_t outputSize_ = 0;
  std::uint32_t modelRate_ = 0;
  std::uint32_t outputRate_ = 0;
  std::vector<float> frame_;
  std::vector<float> converted_;
};

}  // namespace ORVEL
