#include "noise_canceller/spectral_features.h"

#include <cmath>
#include <utility>

#include "noise_canceller/vector_functions.h"

namespace ORVEL::NOISE_CANCELLER {

namespace {

constexpr std::uint32_t kShortFrames = 10;
constexpr std::size_t kLoudRecordSeconds = 4;
constexpr float kLeastEnergy = 1e-6F;
constexpr double kPowerOffset = 1000.0;

UTILS::MeanEnergy makeTracker(const RescaleSettings& settings, const FrameParameters& frame) {
  const auto longFrames =
      static_cast<std::uint32_t>(frame.sampleRate * kLoudRecordSeconds / frame.step);
  return {kShortFrames, longFrames, settings.referenceEnergy,
          settings.referenceAmplitude * settings.referenceAmplitude};
}

}  // namespace

Rescaler::Rescaler(const RescaleSettings& settings, const FrameParameters& frame)
    : referenceAmplitude_(settings.referenceAmplitude), frameLength_(frame.frameLength) {
  if (settings.enabled) {
    level_.emplace(makeTracker(settings, frame));
  }
}

float Rescaler::update(const float* frame) {
  if (!level_.has_value()) {
    return 1.0F;
  }
  const float energy = level_->update(frame, frameLength_);
  return energy > kLeastEnergy ? referenceAmplitude_ / std::sqrt(energy) : 1.0F;
}

LogMagnitudeFeatures::LogMagnitudeFeatures(const FrameParameters& frame)
    : begin_(frame.bandBegin), width_(frame.bandWidth()) {}

LogMagnitudeFeatures::LogMagnitudeFeatures(const FrameParameters& frame,
                                           const RescaleSettings& rescale)
    : LogMagnitudeFeatures(frame) {
  rescaler_.emplace(rescale, frame);
}

void LogMagnitudeFeatures::compute(const float* frame, const Spectrum& spectrum, float* features) {
  const double scale = rescaler_.has_value() ? rescaler_->update(frame) : 1.0F;
  for (std::size_t k = 0; k < width_; ++k) {
    features[k] = static_cast<float>(powerOf(spectrum[begin_ + k]));
  }
  squareRoots(features, features, width_);
  logarithms(features, scale, 1.0, features, width_);
}

LogPowerBandFeatures::LogPowerBandFeatures(const FrameParameters& frame,
                                           const RescaleSettings& rescale,
                                           std::shared_ptr<const BandCompression> bands)
    : begin_(frame.bandBegin),
      bands_(std::move(bands)),
      rescaler_(rescale, frame),
      power_(bands_->bins()) {}

void LogPowerBandFeatures::compute(const float* frame, const Spectrum& spectrum, float* features) {
  const double scale = rescaler_.update(frame);
  for (std::size_t k = 0; k < power_.size(); ++k) {
    power_[k] = static_cast<float>(powerOf(spectrum[begin_ + k]));
  }
  bands_->compress(power_.data(), features);
  logarithms(features, scale * scale, kPowerOffset, features, bands_->bands());
}

}  // namespace ORVEL::NOISE_CANCELLER
