#pragma once

#include "noise_canceller/spectral_cleaner.h"

namespace ORVEL::NOISE_CANCELLER {

/** As v0.0.1 with one power-complementary window for analysis and synthesis. */
class NoiseCleaner_v0_0_2 final : public SpectralCleaner {
 public:
  /** @throws ORVEL_Exception when weights are missing or do not fit together. */
  NoiseCleaner_v0_0_2(WEIGHTS::Model& model, int sessionFrameMs);
};

}  // namespace ORVEL::NOISE_CANCELLER
