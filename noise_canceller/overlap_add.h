#pragma once

#include <cstddef>
#include <vector>

#include "noise_canceller/weight_parameters.h"
#include "utils/sliding_buffer.h"

namespace ORVEL::NOISE_CANCELLER {

/**
 * Delay of the output in milliseconds for a frame length and a session's frame duration. The tuned
 * values keep the output ahead of its reader; pairs that are not in the table give 0.
 */
std::size_t outputDelayMs(std::size_t frameLengthMs, int sessionFrameMs);

/**
 * Cuts a stream into overlapping frames of two hops and overlap-adds the output frames into a stream
 * that lags by a fixed delay. Allocates nothing after construction.
 */
class OverlapAdd {
 public:
  OverlapAdd(const FrameParameters& frame, int sessionFrameMs);

  /** Samples by which the output lags behind the input. */
  std::size_t delay() const { return delay_; }

  /** Forgets the stream so far; the delay starts anew. */
  void reset();

  // A call: its samples, every frame that they complete with its output, and the output of the call.

  void append(const std::vector<float>& samples) { input_.append(samples.data(), samples.size()); }

  /** The next frame; null when more samples are needed. */
  const float* frame() const { return input_.size() >= 2 * step_ ? input_.data() : nullptr; }

  /** Takes the output of the frame, null for silence, and goes on to the next one. */
  void addFrame(const float* output);

  /** Replaces the samples by the output of the call. */
  void deliver(std::vector<float>& samples);

 private:
  std::size_t step_;
  std::size_t delay_;
  std::size_t outputCount_;
  UTILS::SlidingBuffer input_;
  UTILS::SlidingBuffer output_;
};

}  // namespace ORVEL::NOISE_CANCELLER
