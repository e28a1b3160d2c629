#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "utils/non_copyable.h"

// As speexdsp's header declares it; its other names are macros.
using SpeexResamplerState = struct SpeexResamplerState_;

namespace ORVEL {

/** Filters of speexdsp are small and quickly designed: there is nothing to keep. */
class ResamplerCache : private UTILS::NonCopyMovable {};

/**
 * Sample-rate conversion frame by frame: every call gives exactly one output frame, which lags by a whole
 * number of samples. A factor of exactly 1 passes frames through. Allocates nothing after construction.
 */
class FrameResampler {
 public:
  /**
   * Sizes in samples of one frame before and after the conversion.
   *
   * @throws std::bad_alloc
   */
  FrameResampler(ResamplerCache& cache, std::size_t inFrameSize, std::size_t outFrameSize);

  bool isIdentity() const { return state_ == nullptr; }

  /** Samples by which the output lags, at the output rate. */
  std::size_t delay() const { return delay_; }

  /**
   * Converts one frame; `out` is resized to one output frame.
   *
   * @return the size of the output frame.
   */
  int process(const std::vector<float>& in, std::vector<float>& out);

  /** Back to the state as constructed, bit for bit. Takes about as long as a frame. */
  void reset();

 private:
  struct Close {
    void operator()(SpeexResamplerState* state) const;
  };

  std::size_t runZeros(std::size_t count);

  std::unique_ptr<SpeexResamplerState, Close> state_;
  std::size_t outFrameSize_;
  /** Zeros in front of the stream. */
  std::size_t lead_ = 0;
  std::size_t delay_ = 0;
  std::vector<float> work_;
};

}  // namespace ORVEL
