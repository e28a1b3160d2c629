#pragma once

#include <array>
#include <complex>
#include <cstddef>
#include <vector>

namespace ORVEL::NOISE_CANCELLER {

/**
 * Brings a stream of 10 ms buffers to a reference amplitude. The level
 * moves towards a new energy by 1 % of the distance remaining after one second, jumps nearly all the
 * way when the energy more than doubles, and decays to 1 % in three seconds of near silence.
 */
class AutomaticGain {
 public:
  AutomaticGain();

  /** Back to the level of a new stream. */
  void reset();

  /** Takes one buffer and gives the gain for it. */
  float update(const float* samples, std::size_t count);

 private:
  double attack_;
  double decay_;
  double level_;
};

/** Bins of the detector's spectrum and the bands they are pooled into. */
inline constexpr std::size_t kVadBins = 121;
inline constexpr std::size_t kVadFeatures = 61;

/**
 * Log band energies of a frame: 31 single bins, then 15 pairs and 15 quadruples of bins averaged,
 * each as ln(P + 1).
 */
void computeVadFeatures(const std::vector<std::complex<float>>& spectrum,
                        std::array<float, kVadFeatures>& features);

}  // namespace ORVEL::NOISE_CANCELLER
