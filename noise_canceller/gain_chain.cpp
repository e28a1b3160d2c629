#include "noise_canceller/gain_chain.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "utils/arithmetic.h"

namespace ORVEL::NOISE_CANCELLER {

namespace {

constexpr std::uint32_t kGateShortFrames = 10;
constexpr std::size_t kGateRecordSeconds = 4;

// Soft modification: gains well above the knee are squared, gains well below it stay as they are.
constexpr double kKnee = 0.05;
constexpr double kSquareSlope = 3.0;
constexpr double kKeepSlope = 1.0;

}  // namespace

GainChain::GainChain(const GainSettings& settings, RmThresholdOrder order,
                     const FrameParameters& frame)
    : settings_(settings),
      order_(order),
      bandBegin_(frame.bandBegin),
      frameLength_(frame.frameLength),
      incoming_(frame.coefficientNumber, 0.0F),
      stored_(frame.coefficientNumber, 0.0F) {
  if (settings.thresholdCut) {
    const auto record =
        static_cast<std::uint32_t>(frame.sampleRate * kGateRecordSeconds / frame.frameLength);
    gate_.emplace(kGateShortFrames, record, settings.thresholdCutReference);
  }
}

void GainChain::reset() {
  std::fill(stored_.begin(), stored_.end(), 0.0F);
  if (gate_.has_value()) {
    gate_->reset();
  }
}

void GainChain::measure(const float* windowedFrame) {
  if (gate_.has_value()) {
    gate_->measure(windowedFrame, frameLength_);
  }
}

float* GainChain::band() {
  std::fill(incoming_.begin(), incoming_.end(), 0.0F);
  return incoming_.data() + bandBegin_;
}

void GainChain::square() {
  for (float& gain : incoming_) {
    gain *= gain;
  }
}

void GainChain::modifySoftly() {
  // With e = exp(distance from the knee, in knees): g^2 / (1 + e^-3) + g / (1 + e).
  static_assert(kSquareSlope == 3.0 && kKeepSlope == 1.0);
  alignas(64) std::array<double, 128> powers;
  for (std::size_t begin = 0; begin < incoming_.size(); begin += powers.size()) {
    const std::size_t count = std::min(powers.size(), incoming_.size() - begin);
    float* gains = incoming_.data() + begin;
    UTILS::exponentials(gains, 1.0 / kKnee, -1.0, powers.data(), count);
    for (std::size_t i = 0; i < count; ++i) {
      const double e = powers[i];
      const double g = gains[i];
      gains[i] = static_cast<float>(g * g / (1.0 + 1.0 / (e * e * e)) + g / (1.0 + e));
    }
  }
}

void GainChain::applyRmThreshold() {
  const float threshold = settings_.rmThresholdValue;
  const float reciprocal = 1.0F / threshold;
  for (float& gain : stored_) {
    if (gain < threshold) {
      gain = order_ == RmThresholdOrder::kGainFirst ? gain * reciprocal * gain
                                                    : reciprocal * gain * gain;
    }
  }
}

const std::vector<float>& GainChain::shape() {
  if (settings_.softModification) {
    modifySoftly();
  } else {
    square();
  }
  if (settings_.squareHighFrequencies) {
    for (std::size_t k = incoming_.size() / 2; k < incoming_.size(); ++k) {
      incoming_[k] *= incoming_[k];
    }
  }
  const float c = settings_.smoothing;
  for (std::size_t k = 0; k < stored_.size(); ++k) {
    stored_[k] = c == 1.0F ? incoming_[k] : (1.0F - c) * stored_[k] + c * incoming_[k];
  }
  if (settings_.rmThreshold) {
    applyRmThreshold();
  }
  if (gate_.has_value()) {
    gate_->apply(stored_.data(), stored_.size());
  }
  return stored_;
}

}  // namespace ORVEL::NOISE_CANCELLER
