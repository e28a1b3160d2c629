#pragma once

#include <vector>

#include "noise_canceller/noise_cleaner.h"
#include "noise_canceller/spectral_cleaner.h"

namespace ORVEL::NOISE_CANCELLER {

class SkippableNetwork;

/**
 * As v0.0.4 with a recurrent network whose state lasts as long as the cleaner. May pass over the network
 * on digital silence and amplify the output.
 */
class NoiseCleaner_v0_0_5 final : public SpectralCleaner {
 public:
  /** @throws ORVEL_Exception when weights are missing or do not fit together. */
  NoiseCleaner_v0_0_5(WEIGHTS::Model& model, int sessionFrameMs);

  int process(std::vector<float>& samples) override;

 private:
  struct Parts;
  NoiseCleaner_v0_0_5(WEIGHTS::Model& model, Parts parts, int sessionFrameMs);
  static Parts makeParts(WEIGHTS::Model& model);

  /** The pipeline's network when silence is to be skipped, otherwise null. */
  SkippableNetwork* skippable_;
};

}  // namespace ORVEL::NOISE_CANCELLER
