#pragma once

#include <cstddef>
#include <cstdint>

#include "utils/energy_queue.h"

namespace ORVEL::UTILS {

/**
 * Follows the level of the louder frames of a stream: the mean energy of the frames during which the
 * short-term mean energy was at or above a reference. Not thread-safe; `update` allocates nothing.
 */
class MeanEnergy {
 public:
  /**
   * @param shortLength frames of the short-term mean, at least 1.
   * @param longLength most loud frames remembered, at least 1.
   * @param reference energy per sample from which the short-term mean counts as loud.
   * @param initialEnergy first entry of the record of loud frames.
   */
  MeanEnergy(std::uint32_t shortLength, std::uint32_t longLength, float reference,
             float initialEnergy);

  /** Takes one frame of `count` samples and gives the mean energy per sample of the loud frames. */
  float update(const float* samples, std::size_t count);

 private:
  std::uint32_t shortLength_;
  std::uint32_t longLength_;
  double reference_;
  EnergyQueue shortQueue_;
  EnergyQueue longQueue_;
  double shortSum_ = 0.0;
  double longSum_;
};

/** Mean of the squared samples, accumulated in double precision. */
double frameEnergy(const float* samples, std::size_t count);

}  // namespace ORVEL::UTILS
