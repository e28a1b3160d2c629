#pragma once

#include <cstddef>
#include <span>
#include <vector>

namespace ORVEL::TOOLS {

/** Moves a signal by a part of a sample, by a windowed sinc. */
class FractionalDelay {
 public:
  /** Samples by which the output lags in addition to the part of a sample. */
  static constexpr std::size_t kWholeDelay = 32;

  /** @param delay samples, from -0.5 to 0.5; below 0 the output comes earlier. */
  explicit FractionalDelay(double delay);

  /** Replaces the samples by as many delayed ones. */
  void process(std::span<float> samples);

 private:
  std::vector<float> taps_;     // latest sample first
  std::vector<float> history_;  // the samples before the span, then the span
};

}  // namespace ORVEL::TOOLS
