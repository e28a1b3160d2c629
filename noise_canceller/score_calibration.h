#pragma once

#include <algorithm>

#include "weights/weight.h"

namespace ORVEL::NOISE_CANCELLER {

/**
 * Maps the network's raw output to a score: the model's low, best and high points become 0, 0.5 and 1,
 * linearly in between, kept within [0.00001, 0.99999]. Without all three points the raw output is the
 * score.
 */
class ScoreCalibration {
 public:
  explicit ScoreCalibration(const WEIGHTS::Weight& weight) {
    const auto range = weight.values().get<std::vector<float>>("Test_MINMAX");
    const auto best = weight.values().get<std::vector<float>>("Test_BestF1");
    if (range != nullptr && best != nullptr && range->size() >= 2 && !best->empty()) {
      calibrated_ = true;
      low_ = (*range)[0];
      best_ = (*best)[0];
      high_ = (*range)[1];
    }
  }

  float score(float raw) const {
    if (!calibrated_) {
      return raw;
    }
    const float mapped = raw < best_ ? (raw - low_) * 0.5F / (best_ - low_)
                                     : (raw - best_) * 0.5F / (high_ - best_) + 0.5F;
    return std::clamp(mapped, 0.00001F, 0.99999F);
  }

 private:
  bool calibrated_ = false;
  float low_ = 0.0F;
  float best_ = 0.0F;
  float high_ = 0.0F;
};

}  // namespace ORVEL::NOISE_CANCELLER
