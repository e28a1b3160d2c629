#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "noise_canceller/masking_pipeline.h"
#include "noise_canceller/noise_cleaner.h"

namespace ORVEL::NOISE_CANCELLER {

/** What all masking cleaners share: a version is the stages that its constructor chooses. */
class SpectralCleaner : public NoiseCleaner {
 public:
  int process(std::vector<float>& samples) override { return pipeline_.process(samples); }
  std::size_t delay() const override { return pipeline_.delay(); }
  void setGainFloor(float gain) override { pipeline_.setGainFloor(gain); }

 protected:
  SpectralCleaner(const WEIGHTS::Model& model, MaskingStages stages, int sessionFrameMs)
      : NoiseCleaner(model.weight), pipeline_(std::move(stages), sessionFrameMs) {}

 private:
  MaskingPipeline pipeline_;
};

}  // namespace ORVEL::NOISE_CANCELLER
