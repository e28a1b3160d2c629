#pragma once

#include <cstddef>
#include <cstdint>

#include "utils/energy_queue.h"

namespace ORVEL::UTILS {

/**
 * Energy gate: a factor in [0, 1] that falls to 0 when the recent level is far below that of the loud
 * frames seen so far. Unlike MeanEnergy, a frame counts as loud by its own energy, not by a short-term
 * mean. Not thread-safe; allocates nothing after construction.
 */
class EnThreshold {
 public:
  /** Lengths in frames, both at least 1; `reference` is the energy share from which a frame is loud. */
  EnThreshold(std::uint32_t shortLength, std::uint32_t longLength, double reference);

  /** Takes one windowed frame of `count` samples and updates the factor. */
  void measure(const float* samples, std::size_t count);

  /** Scales `count` gains by the factor. */
  void apply(float* gains, std::size_t count) const;

  double factor() const { return factor_; }

 private:
  std::uint32_t shortLength_;
  std::uint32_t longLength_;
  double reference_;
  EnergyQueue shortQueue_;
  EnergyQueue longQueue_;
  double shortSum_ = 0.0;
  double longSum_ = 0.0;
  std::uint32_t loudCount_ = 0;
  double factor_ = 1.0;
};

}  // namespace ORVEL::UTILS
