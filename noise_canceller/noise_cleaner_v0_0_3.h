#pragma once

#include "noise_canceller/spectral_cleaner.h"

namespace ORVEL::NOISE_CANCELLER {

/** Level-normalised log-magnitude features, feed-forward network without noise average. */
class NoiseCleaner_v0_0_3 final : public SpectralCleaner {
 public:
  /** @throws ORVEL_Exception when weights are missing or do not fit together. */
  NoiseCleaner_v0_0_3(WEIGHTS::Model& model, int sessionFrameMs);
};

}  // namespace ORVEL::NOISE_CANCELLER
