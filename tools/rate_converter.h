#pragma once

#include <soxr.h>

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

namespace ORVEL::TOOLS {

/** Converts interleaved audio between two sample rates, without shifting it in time. */
class RateConverter {
 public:
  /** @throws ToolError (kInternal) when the two rates (Hz) cannot be converted. */
  RateConverter(int inputRate, int outputRate, std::size_t channels);

  /** Appends what the input gives so far; some of it is held back until more arrives. */
  void push(std::span<const float> input, std::vector<float>& output);
  /** Appends what was held back. Nothing may be pushed after it. */
  void finish(std::vector<float>& output);

 private:
  struct Deleter {
    void operator()(soxr_t handle) const noexcept { soxr_delete(handle); }
  };
  std::size_t step(const float* input, std::size_t frames, std::vector<float>& output, bool& idle);

  std::size_t channels_;
  std::unique_ptr<soxr, Deleter> handle_;
};

}  // namespace ORVEL::TOOLS
