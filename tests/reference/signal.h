// Transforms, frame windows and energy followers in double precision, each from its definition.
#pragma once

#include <complex>
#include <vector>

namespace orvel_test {

using Signal = std::vector<double>;
using Spectrum = std::vector<std::complex<double>>;

// Discrete Fourier transforms of real frames of any even length.
Spectrum forwardReal(const Signal& frame);                   // n samples -> n / 2 + 1 bins
Signal backwardReal(const Spectrum& half, size_t frameLen);  // scaled by 1 / n

Signal triangle(int n);
Signal hamming(int n);
Signal vorbis(int n);
Signal multiplied(Signal x, const Signal& w);

double meanSquare(const Signal& frame);

// The two followers of the energy, computed anew from the whole past instead of from running sums.
class Energies {
 public:
  Energies(size_t keep, double reference, Signal loud = {})
      : keep_(keep), reference_(reference), loud_(std::move(loud)) {}
  // Mean energy of loud frames; loud while the mean of the last ten frames is high enough.
  double loudMean(const Signal& frame);
  // Gate factor; a frame is loud by its own energy, and quiet ones far below the loud mean are cut.
  double gate(const Signal& frame);

 private:
  double recent(const Signal& frame);  // takes a frame in
  double mean() const;                 // of the loud frames kept
  size_t keep_;
  double reference_;
  Signal all_, loud_;
};

}  // namespace orvel_test
