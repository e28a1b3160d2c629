#include "noise_canceller/cleaner_versions.h"

namespace ORVEL::NOISE_CANCELLER {

// Log-power features in logarithmic bands, brought to a reference level; a feed-forward network.
constinit const CleanerTraits NoiseCleaner_v0_0_4::traits{
    .version = "0.0.4",
    .keySuffix = "_v0_0_4",
    .parameters = kRescaledParameters,
    .features = FeatureKind::kLogBandPower,
    .rescales = true,
    .bandRate = 1,
    .repeatsStatistics = true,
};

}  // namespace ORVEL::NOISE_CANCELLER
