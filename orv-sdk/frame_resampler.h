#pragma once

#include <cstddef>
#include <vector>

#include "orv-sdk/resampler_cache.h"

namespace ORVEL {

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

 private:
  std::size_t run(const std::vector<float>& in);
  void deliverFirst(std::size_t produced, std::vector<float>& out);
  void deliver(std::size_t produced, std::vector<float>& out);

  ResamplerHandle handle_;
  double factor_;
  std::size_t outFrameSize_;
  std::size_t delay_ = 0;
  std::size_t pending_ = 0;
  bool first_ = true;
  std::vector<float> work_;
};

/** Samples that a fresh libresample handle gives for one frame of zeros. */
std::size_t countFirstOutput(void* handle, double factor, std::size_t inFrameSize);

}  // namespace ORVEL
