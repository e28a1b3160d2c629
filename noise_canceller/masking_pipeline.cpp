#include "noise_canceller/masking_pipeline.h"

#include <mkl_vml.h>

#include <algorithm>
#include <utility>

namespace ORVEL::NOISE_CANCELLER {

MaskingPipeline::MaskingPipeline(MaskingStages stages, int sessionFrameMs)
    : stages_(std::move(stages)),
      overlapAdd_(stages_.frame, sessionFrameMs),
      windowed_(stages_.frame.frameLength),
      spectrum_(stages_.frame.coefficientNumber),
      unwindowedSpectrum_(stages_.masksUnwindowedFrame ? stages_.frame.coefficientNumber : 0),
      mask_(stages_.network->outputs()) {
  requireSize("the network's input", stages_.network->inputs(), "the features' length",
              stages_.input.size());
  requireSize(
      "the network's output", mask_.size(), "the mask's length",
      stages_.expansion != nullptr ? stages_.expansion->bands() : stages_.frame.bandWidth());
}

int MaskingPipeline::process(std::vector<float>& samples) {
  const bool succeeded =
      overlapAdd_.process(samples, [this](const float* frame) { return processHop(frame); });
  return succeeded ? 1 : -1;
}

void MaskingPipeline::estimateMask(const float* frame) {
  stages_.features->compute(frame, spectrum_, stages_.input.nextFrame());
  const float* average =
      stages_.noiseAverage.has_value() ? stages_.noiseAverage->values() : nullptr;
  stages_.network->evaluate(stages_.input.normalised(average), mask_.data());
  if (stages_.expansion != nullptr) {
    stages_.expansion->expand(mask_.data(), stages_.gains.band());
  } else {
    std::copy(mask_.begin(), mask_.end(), stages_.gains.band());
  }
}

const float* MaskingPipeline::processHop(const float* frame) {
  const std::size_t length = windowed_.size();
  vsMul(static_cast<MKL_INT>(length), frame, stages_.analysisWindow->data(), windowed_.data());
  stages_.gains.measure(windowed_.data());
  if (!stages_.fft->forward(windowed_, spectrum_)) {
    return nullptr;
  }
  estimateMask(frame);
  const std::vector<float>& gains = stages_.gains.shape();
  if (stages_.noiseAverage.has_value()) {
    stages_.noiseAverage->update(spectrum_, gains);
  }
  if (!stages_.masksUnwindowedFrame) {
    return stages_.synthesis.synthesise(spectrum_, gains);
  }
  if (!stages_.fft->forward(frame, length, unwindowedSpectrum_.data(),
                            unwindowedSpectrum_.size())) {
    return nullptr;
  }
  return stages_.synthesis.synthesise(unwindowedSpectrum_, gains);
}

}  // namespace ORVEL::NOISE_CANCELLER
