#pragma once

#include <complex>
#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

#include "noise_canceller/weight_parameters.h"
#include "utils/energy_trackers.h"

namespace ORVEL::NOISE_CANCELLER {

using Spectrum = std::vector<std::complex<float>>;

/** Square of a bin's magnitude. */
inline double powerOf(std::complex<float> bin) {
  const double re = bin.real();
  const double im = bin.imag();
  return re * re + im * im;
}

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

/** Settings of the level normalisation of the features. */
struct RescaleSettings {
  float referenceAmplitude = 2000.0F;
  float referenceEnergy = 100.0F;
};

/**
 * What the network sees of one hop's spectrum: ln(s |X| + 1) of each bin of the band, or with bands
 * ln(s^2 P + 1000) of each compressed one. The gain s brings the loud frames of the stream to a reference
 * level; it is 1 without rescaling. Allocates nothing after construction.
 */
class SpectralFeatures {
 public:
  SpectralFeatures(const FrameParameters& frame, const std::optional<RescaleSettings>& rescale,
                   std::shared_ptr<const BandCompression> bands);

  std::size_t size() const { return bands_ != nullptr ? bands_->bands() : width_; }
  /** Writes size() features of the hop: its unwindowed frame and the spectrum of its windowed one. */
  void compute(const float* frame, const Spectrum& spectrum, float* features);
  /** Forgets the level of the stream so far. */
  void reset();

 private:
  float rescaleGain(const float* frame);

  std::size_t frameLength_;
  std::size_t begin_;
  std::size_t width_;
  std::shared_ptr<const BandCompression> bands_;
  float referenceAmplitude_ = 0.0F;
  std::optional<UTILS::MeanEnergy> level_;
  std::vector<float> power_;
};

}  // namespace ORVEL::NOISE_CANCELLER
