#pragma once

#include "noise_canceller/spectral_cleaner.h"

namespace ORVEL::NOISE_CANCELLER {

/**
 * Log-magnitude features, feed-forward network with a noise average as input, Hamming analysis window;
 * by default the unwindowed spectrum is masked and a triangle window follows.
 */
class NoiseCleaner_v0_0_1 final : public SpectralCleaner {
 public:
  /** @throws ORVEL_Exception when weights are missing or do not fit together. */
  NoiseCleaner_v0_0_1(WEIGHTS::Model& model, int sessionFrameMs);
};

}  // namespace ORVEL::NOISE_CANCELLER
