// Deterministic test signals in 16-bit scale.
#pragma once

#include <cstdint>
#include <vector>

namespace orvel_test {

// Gliding harmonics in syllables of changing level over a broad noise floor: every bin carries
// energy, so that rounding in one implementation does not decide a feature; peaks near 14000.
std::vector<int16_t> speechLike(int rate, double seconds, unsigned seed = 3);

// A smooth pulse centred on a sample, narrow in time and far below half of the lowest rate.
std::vector<float> pulse(int rate, double seconds, int centre);

std::vector<float> toFloat(const std::vector<int16_t>& samples);

}  // namespace orvel_test
