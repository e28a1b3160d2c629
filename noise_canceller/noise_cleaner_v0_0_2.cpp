#include "noise_canceller/cleaner_versions.h"

namespace ORVEL::NOISE_CANCELLER {

// As v0.0.1 with one power-complementary window for analysis and synthesis.
constinit const CleanerTraits NoiseCleaner_v0_0_2::traits{
    .version = "0.0.2",
    .keySuffix = "_v0_0_2",
    .parameters = kNoiseAverageParameters,
    .averagesNoise = true,
    .network = NetworkKind::kScaledFeedForward,
    .networkBeforeKeys = true,
    .numbers = NumberStyle::kWhole,
    .rmThresholdOrder = RmThresholdOrder::kReciprocalFirst,
};

}  // namespace ORVEL::NOISE_CANCELLER
