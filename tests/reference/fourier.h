// Discrete Fourier transforms of real frames in double precision, of any even length.
#pragma once

#include <complex>
#include <vector>

namespace orvel_test {

using Signal = std::vector<double>;
using Spectrum = std::vector<std::complex<double>>;

Spectrum forwardReal(const Signal& frame);                   // n samples -> n / 2 + 1 bins
Signal backwardReal(const Spectrum& half, size_t frameLen);  // scaled by 1 / n

}  // namespace orvel_test
