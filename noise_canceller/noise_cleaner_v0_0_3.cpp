#include "noise_canceller/cleaner_versions.h"

namespace ORVEL::NOISE_CANCELLER {

// Log-magnitude features brought to a reference level, a feed-forward network without noise average.
constinit const CleanerTraits NoiseCleaner_v0_0_3::traits{
    .version = "0.0.3",
    .keySuffix = "_v0_0_3",
    .parameters = kRescaledParameters,
    .rescales = true,
    .networkBeforeKeys = true,
};

}  // namespace ORVEL::NOISE_CANCELLER
