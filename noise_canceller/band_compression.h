#pragma once

#include <cstddef>
#include <vector>

namespace ORVEL::NOISE_CANCELLER {

/**
 * Logarithmic bands over n bins: with rate r the first K = n / 2^r bins stay single, then every octave
 * has K / 2 bands, 2, 4, ... 2^r bins wide. Compression sums the bins of a band, expansion repeats a
 * band's value over its bins. Rate 0 changes nothing.
 */
class BandCompression {
 public:
  /** @throws ORVEL_Exception when the bands do not end exactly at n, with the numbers. */
  BandCompression(std::size_t bins, long rate);

  std::size_t bins() const { return bandOfBin_.size(); }
  std::size_t bands() const { return bandWidths_.size(); }

  /** bands() sums of the bins() values. */
  void compress(const float* bins, float* bands) const;
  /** bins() values from the bands() ones. */
  void expand(const float* bands, float* bins) const;

 private:
  std::vector<std::size_t> bandWidths_;
  std::vector<std::size_t> bandOfBin_;
};

}  // namespace ORVEL::NOISE_CANCELLER
