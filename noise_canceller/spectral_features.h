#pragma once

#include <complex>
#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

#include "noise_canceller/band_compression.h"
#include "noise_canceller/frame_parameters.h"
#include "utils/mean_energy.h"

namespace ORVEL::NOISE_CANCELLER {

using Spectrum = std::vector<std::complex<float>>;

/** Settings of the level normalisation of the features. */
struct RescaleSettings {
  bool enabled = true;
  float referenceAmplitude = 2000.0F;
  float referenceEnergy = 100.0F;
};

/** Gain that brings the loud frames of a stream to a reference level; 1 when switched off. */
class Rescaler {
 public:
  Rescaler(const RescaleSettings& settings, const FrameParameters& frame);

  /** Takes the hop's frame, unwindowed, and gives the gain for its features. */
  float update(const float* frame);

 private:
  float referenceAmplitude_;
  std::size_t frameLength_;
  std::optional<UTILS::MeanEnergy> level_;
};

/** What the network sees of one hop's spectrum. */
class SpectralFeatures {
 public:
  SpectralFeatures() = default;
  SpectralFeatures(const SpectralFeatures&) = delete;
  SpectralFeatures& operator=(const SpectralFeatures&) = delete;
  virtual ~SpectralFeatures() = default;

  virtual std::size_t size() const = 0;
  /** Writes size() features of the hop: its unwindowed frame and the spectrum of its windowed one. */
  virtual void compute(const float* frame, const Spectrum& spectrum, float* features) = 0;
};

/** ln(s |X| + 1) of each bin of the band; s is 1 without a rescaler. */
class LogMagnitudeFeatures final : public SpectralFeatures {
 public:
  explicit LogMagnitudeFeatures(const FrameParameters& frame);
  LogMagnitudeFeatures(const FrameParameters& frame, const RescaleSettings& rescale);

  std::size_t size() const override { return width_; }
  void compute(const float* frame, const Spectrum& spectrum, float* features) override;

 private:
  std::size_t begin_;
  std::size_t width_;
  std::optional<Rescaler> rescaler_;
};

/** ln(P + 1000) of each compressed band, P the power of its rescaled bins. */
class LogPowerBandFeatures final : public SpectralFeatures {
 public:
  LogPowerBandFeatures(const FrameParameters& frame, const RescaleSettings& rescale,
                       std::shared_ptr<const BandCompression> bands);

  std::size_t size() const override { return bands_->bands(); }
  void compute(const float* frame, const Spectrum& spectrum, float* features) override;

 private:
  std::size_t begin_;
  std::shared_ptr<const BandCompression> bands_;
  Rescaler rescaler_;
  std::vector<float> power_;
};

}  // namespace ORVEL::NOISE_CANCELLER
