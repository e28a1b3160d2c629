#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

namespace ORVEL::TOOLS {

/** Converts one channel between two sample rates, without shifting it in time. */
class RateConverter {
 public:
  /** @throws ToolError (internal) when the two rates (Hz) cannot be converted. */
  RateConverter(int inputRate, int outputRate);
  RateConverter(RateConverter&&) noexcept;
  RateConverter& operator=(RateConverter&&) noexcept;
  ~RateConverter();

  /** Appends what the input gives so far; some of it is held back until more arrives. */
  void push(std::span<const float> input, std::vector<float>& output);
  /** Appends what was held back. Nothing may be pushed after it. */
  void finish(std::vector<float>& output);

 private:
  std::size_t step(const float* input, std::size_t count, std::vector<float>& output, bool& idle);

  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace ORVEL::TOOLS
