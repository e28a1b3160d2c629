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

  /**
   * Replaces the new samples by the output of this call. `hop` maps a pointer to a frame's samples to
   * a pointer to its output frame, or to a null pointer when it fails.
   *
   * @return false when a hop failed; its frame is silent then.
   */
  template <class Hop>
  bool process(std::vector<float>& samples, Hop hop) {
    bool succeeded = true;
    input_.append(samples.data(), samples.size());
    while (input_.size() >= 2 * step_) {
      const float* frame = hop(input_.data());
      input_.advance(step_);
      output_.appendZeros(step_);
      if (frame != nullptr) {
        addFrame(frame);
      } else {
        succeeded = false;
      }
    }
    deliver(samples);
    return succeeded;
  }

 private:
  void addFrame(const float* frame);
  void deliver(std::vector<float>& samples);

  std::size_t step_;
  std::size_t delay_;
  std::size_t outputCount_;
  UTILS::SlidingBuffer input_;
  UTILS::SlidingBuffer output_;
};

}  // namespace ORVEL::NOISE_CANCELLER
