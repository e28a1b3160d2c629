#include "noise_canceller/spectral_features.h"

#include <cmath>
#include <cstdint>
#include <numeric>
#include <string>
#include <utility>

#include "utils/arithmetic.h"

namespace ORVEL::NOISE_CANCELLER {

namespace {

constexpr std::uint32_t kShortFrames = 10;
constexpr std::size_t kLoudRecordSeconds = 4;
constexpr float kLeastEnergy = 1e-6F;
constexpr double kPowerOffset = 1000.0;
constexpr long kHighestRate = 30;

// Widths of the bands, the last of which may run past the bins.
std::vector<std::size_t> layOutBands(std::size_t bins, std::size_t singles) {
  std::vector<std::size_t> widths(singles, 1);
  std::size_t width = 2;
  std::size_t octave = singles;
  for (std::size_t bin = singles; bin < bins; bin += width) {
    if (bin == 2 * octave) {
      width *= 2;
      octave = bin;
    }
    widths.push_back(width);
  }
  return widths;
}

// Which band each bin takes its value from. Walks from the end as the mask is expanded in place, with
// indices in place of values.
std::vector<std::size_t> sourceBands(std::size_t bins, std::size_t bands, std::size_t widest) {
  std::vector<std::size_t> source(bins, 0);
  std::iota(source.begin(), source.begin() + static_cast<std::ptrdiff_t>(bands), std::size_t{0});
  std::size_t width = widest;
  std::size_t half = bins;
  std::size_t end = bins;
  for (std::size_t band = bands; band > 0 && band < end; --band) {
    if (2 * (end - 1) < half) {
      width /= 2;
      half /= 2;
    }
    if (width <= 1) {
      break;
    }
    for (std::size_t i = 0; i < width && end > 0; ++i) {
      source[--end] = band - 1;
    }
  }
  return source;
}

}  // namespace

BandCompression::BandCompression(std::size_t bins, long rate) {
  const std::string numbers =
      "the band of " + std::to_string(bins) + " bins with compression rate " + std::to_string(rate);
  const std::size_t singles = rate < 0 || rate > kHighestRate ? 0 : bins >> rate;
  if (singles == 0) {
    refuseWeights(numbers + " leaves no single bin");
  }
  bandWidths_ = layOutBands(bins, singles);
  const std::size_t covered =
      std::accumulate(bandWidths_.begin(), bandWidths_.end(), std::size_t{0});
  requireSize("the end of " + numbers, covered, "the number of bins", bins);
  const auto shift = static_cast<std::size_t>(rate);
  const std::size_t expanded = (bands() << (shift + 1)) / (shift + 2);
  requireSize("the expansion of " + std::to_string(bands()) + " bands of " + numbers, expanded,
              "the number of bins", bins);
  bandOfBin_ = sourceBands(bins, bands(), std::size_t{1} << shift);
}

void BandCompression::compress(const float* bins, float* bands) const {
  for (const std::size_t width : bandWidths_) {
    float sum = *bins++;
    for (std::size_t i = 1; i < width; ++i) {
      sum += *bins++;
    }
    *bands++ = sum;
  }
}

void BandCompression::expand(const float* bands, float* bins) const {
  for (const std::size_t band : bandOfBin_) {
    *bins++ = bands[band];
  }
}

SpectralFeatures::SpectralFeatures(const FrameParameters& frame,
                                   const std::optional<RescaleSettings>& rescale,
                                   std::shared_ptr<const BandCompression> bands)
    : frameLength_(frame.frameLength),
      begin_(frame.bandBegin),
      width_(frame.bandWidth()),
      bands_(std::move(bands)),
      power_(bands_ != nullptr ? width_ : 0) {
  if (rescale.has_value()) {
    const auto longFrames =
        static_cast<std::uint32_t>(frame.sampleRate * kLoudRecordSeconds / frame.step);
    referenceAmplitude_ = rescale->referenceAmplitude;
    level_.emplace(kShortFrames, longFrames, rescale->referenceEnergy,
                   referenceAmplitude_ * referenceAmplitude_);
  }
}

void SpectralFeatures::reset() {
  if (level_.has_value()) {
    level_->reset();
  }
}

float SpectralFeatures::rescaleGain(const float* frame) {
  if (!level_.has_value()) {
    return 1.0F;
  }
  const float energy = level_->update(frame, frameLength_);
  return energy > kLeastEnergy ? referenceAmplitude_ / std::sqrt(energy) : 1.0F;
}

void SpectralFeatures::compute(const float* frame, const Spectrum& spectrum, float* features) {
  const double gain = rescaleGain(frame);
  float* power = bands_ != nullptr ? power_.data() : features;
  for (std::size_t k = 0; k < width_; ++k) {
    power[k] = static_cast<float>(powerOf(spectrum[begin_ + k]));
  }
  if (bands_ != nullptr) {
    bands_->compress(power, features);
    UTILS::logarithms(features, gain * gain, kPowerOffset, features, bands_->bands());
  } else {
    UTILS::squareRoots(features, features, width_);
    UTILS::logarithms(features, gain, 1.0, features, width_);
  }
}

}  // namespace ORVEL::NOISE_CANCELLER
