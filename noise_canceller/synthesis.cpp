#include "noise_canceller/synthesis.h"

#include <algorithm>
#include <utility>

#include "utils/arithmetic.h"

namespace ORVEL::NOISE_CANCELLER {

Synthesis::Synthesis(std::shared_ptr<UTILS::FFT> fft, SynthesisSettings settings,
                     const FrameParameters& frame)
    : fft_(std::move(fft)),
      settings_(std::move(settings)),
      masked_(frame.coefficientNumber),
      frame_(frame.frameLength) {}

const float* Synthesis::synthesise(const Spectrum& spectrum, const std::vector<float>& gains) {
  for (std::size_t k = 0; k < masked_.size(); ++k) {
    masked_[k] = std::max(gains[k], gainFloor_) * spectrum[k];
  }
  if (!fft_->backward(masked_, frame_)) {
    return nullptr;
  }
  if (settings_.volume != 1.0) {
    for (float& sample : frame_) {
      sample = static_cast<float>(sample * settings_.volume);
    }
  }
  if (settings_.window != nullptr) {
    UTILS::multiply(frame_.data(), settings_.window->data(), frame_.data(), frame_.size());
  }
  if (settings_.clipFix.enabled) {
    fixClipping();
  }
  return frame_.data();
}

// Only the positive peak counts: a frame whose excess is negative stays as it is.
void Synthesis::fixClipping() {
  const float peak = *std::max_element(frame_.begin(), frame_.end());
  if (peak > settings_.clipFix.point) {
    const float scale = settings_.clipFix.point / peak;
    for (float& sample : frame_) {
      sample *= scale;
    }
  }
}

}  // namespace ORVEL::NOISE_CANCELLER
