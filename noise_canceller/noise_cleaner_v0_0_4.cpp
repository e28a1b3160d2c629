#include <array>

#include "noise_canceller/cleaner_versions.h"

namespace ORVEL::NOISE_CANCELLER {

namespace {

using enum ParameterType;

constexpr std::array kParameters{
    RequiredParameter{"WeightLinear", kMatrices},
    RequiredParameter{"WeightNonLinear", kMatrices},
    RequiredParameter{"BaesLinear", kFloatLists},
    RequiredParameter{"BaesNonLinear", kFloatLists},
    RequiredParameter{"SampleRate", kInt},
    RequiredParameter{"Step", kInt},
    RequiredParameter{"FiltrBegin", kInt},
    RequiredParameter{"FiltrEnd", kInt},
    RequiredParameter{"FrameLength", kInt},
    RequiredParameter{"PreviewFrames", kInt},
    RequiredParameter{"CoefficientNumber", kInt},
    RequiredParameter{"MU", kFloats},
    RequiredParameter{"SD", kFloats},
};

}  // namespace

// Log-power features in logarithmic bands, brought to a reference level; a feed-forward network.
constinit const CleanerTraits NoiseCleaner_v0_0_4::traits{
    .version = "0.0.4",
    .keySuffix = "_v0_0_4",
    .parameters = kParameters,
    .features = FeatureKind::kLogBandPower,
    .rescales = true,
    .bandRate = 1,
    .repeatsStatistics = true,
};

}  // namespace ORVEL::NOISE_CANCELLER
