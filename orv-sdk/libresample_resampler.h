#pragma once

#include <cstddef>
#include <map>
#include <vector>

#include "orv-sdk/resample_memory.h"
#include "utils/non_copyable.h"

namespace ORVEL {

/**
 * Prepared resamplers, one per conversion factor: designing a filter takes ten times as long as
 * duplicating it. Not locked; sessions of an instance are created by one thread at a time.
 */
class ResamplerCache : private UTILS::NonCopyMovable {
 public:
  /** A fresh resampler, high quality, for exactly this factor (output rate / input rate). */
  ResamplerHandle open(double factor);

  /** Samples that the first call of a fresh resampler gives for `inputCount` samples. */
  std::size_t firstOutputCount(double factor, std::size_t inputCount);

 private:
  struct Prepared {
    ResamplerHandle handle;
    std::map<std::size_t, std::size_t> firstOutputCounts;
  };

  Prepared& prepared(double factor);

  std::map<double, Prepared> byFactor_;
};

/**
 * Sample-rate conversion frame by frame: every call gives exactly one output frame. The stream starts
 * with zeros, as many as the filter's look-ahead needs. A factor of exactly 1 passes frames through.
 * Allocates nothing after construction.
 */
class FrameResampler {
 public:
  /** Sizes in samples of one frame before and after the conversion. */
  FrameResampler(ResamplerCache& cache, std::size_t inFrameSize, std::size_t outFrameSize);

  bool isIdentity() const { return handle_ == nullptr; }

  /** Samples by which the output lags, at the output rate. */
  std::size_t delay() const { return delay_; }

  /**
   * Converts one frame; `out` is resized to one output frame.
   *
   * @return the number of samples that the filter produced in this call; 0 leaves `out` undefined.
   */
  int process(const std::vector<float>& in, std::vector<float>& out);

  /** Back to the state as constructed, bit for bit. Takes about as long as a few frames. */
  void reset();

 private:
  std::size_t run(const std::vector<float>& in);
  void deliverFirst(std::size_t produced, std::vector<float>& out);
  void deliver(std::size_t produced, std::vector<float>& out);

  ResamplerHandle handle_;
  /** The bytes of the handle's state before its first sample; its buffers are not among them. */
  std::vector<unsigned char> freshState_;
  double factor_;
  std::size_t outFrameSize_;
  std::size_t delay_ = 0;
  std::size_t pending_ = 0;
  bool first_ = true;
  std::vector<float> work_;
};

}  // namespace ORVEL
