#include "noise_canceller/cleaner_versions.h"

namespace ORVEL::NOISE_CANCELLER {

// Log-magnitude features, a feed-forward network that also takes an average of the noise, a Hamming
// analysis window. By default the unwindowed spectrum is masked and a triangle window follows.
constinit const CleanerTraits NoiseCleaner_v0_0_1::traits{
    .version = "0.0.1",
    .keySuffix = "_v0_0_1",
    .parameters = kNoiseAverageParameters,
    .analysisWindow = WindowKind::kHamming,
    .synthesisWindow = WindowKind::kTriangle,
    .choosesWindowAfter = true,
    .averagesNoise = true,
    .network = NetworkKind::kScaledFeedForward,
    .networkBeforeKeys = true,
    .numbers = NumberStyle::kWhole,
};

}  // namespace ORVEL::NOISE_CANCELLER
