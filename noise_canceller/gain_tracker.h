#pragma once

#include <cstddef>

namespace ORVEL::NOISE_CANCELLER {

/**
 * The detector's automatic gain: brings a stream of 10 ms buffers to a reference amplitude. The level
 * moves towards a new energy by 1 % of the distance remaining after one second, jumps nearly all the
 * way when the energy more than doubles, and decays to 1 % in three seconds of near silence.
 */
class GainTracker {
 public:
  GainTracker();

  /** Takes one buffer and gives the gain for it. */
  float update(const float* samples, std::size_t count);

 private:
  double attack_;
  double decay_;
  double level_;
};

}  // namespace ORVEL::NOISE_CANCELLER
