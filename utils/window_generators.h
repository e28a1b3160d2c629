#pragma once

#include <vector>

namespace ORVEL::UTILS {

/** Periodic triangle: 2n/N rising from 0, then 1 - 2n/N falling from 1; an odd N ends in 0. */
void generateTriangleWindow(std::vector<float>& window);

/** Symmetric Hamming window, 0.54 - 0.46 cos(2 pi n / (N - 1)); N must be at least 2. */
void generateHammingWindow(std::vector<float>& window);

/**
 * Power-complementary window of the Vorbis codec, sin(pi/2 sin^2(pi n / N)), without the half-sample
 * offset: the squares of two copies N/2 apart sum to 1 (even N).
 */
void generateVorbisWindow(std::vector<float>& window);

}  // namespace ORVEL::UTILS
