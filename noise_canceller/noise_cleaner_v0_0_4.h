#pragma once

#include "noise_canceller/spectral_cleaner.h"

namespace ORVEL::NOISE_CANCELLER {

/** Level-normalised log-power features in logarithmic bands, feed-forward network. */
class NoiseCleaner_v0_0_4 final : public SpectralCleaner {
 public:
  /** @throws ORVEL_Exception when weights are missing or do not fit together. */
  NoiseCleaner_v0_0_4(WEIGHTS::Model& model, int sessionFrameMs);
};

}  // namespace ORVEL::NOISE_CANCELLER
