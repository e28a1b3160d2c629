#pragma once

#include <array>
#include <complex>
#include <cstddef>
#include <vector>

namespace ORVEL::NOISE_CANCELLER {

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
