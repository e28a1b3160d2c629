#include <array>

#include "noise_canceller/cleaner_versions.h"

namespace ORVEL::NOISE_CANCELLER {

namespace {

using enum ParameterType;

constexpr std::array kParameters{
    RequiredParameter{"SampleRate", kInt},
    RequiredParameter{"FrameLength", kInt},
    RequiredParameter{"Step", kInt},
    RequiredParameter{"FiltrBegin", kInt},
    RequiredParameter{"FiltrEnd", kInt},
    RequiredParameter{"PreviewFrames", kInt},
    RequiredParameter{"NATFrameCount", kInt},
    RequiredParameter{"CoefficientNumber", kInt},
    RequiredParameter{"MU", kFloats},
    RequiredParameter{"SD", kFloats},
    RequiredParameter{"WeightLinear", kMatrices},
    RequiredParameter{"WeightNonLinear", kMatrices},
    RequiredParameter{"BaesLinear", kFloatLists},
    RequiredParameter{"BaesNonLinear", kFloatLists},
    RequiredParameter{"HeadenMultiplier", kFloatLists},
    RequiredParameter{"HeadenReducer", kFloatLists},
};

}  // namespace

// Log-magnitude features, a feed-forward network that also takes an average of the noise, a Hamming
// analysis window. By default the unwindowed spectrum is masked and a triangle window follows.
constinit const CleanerTraits NoiseCleaner_v0_0_1::traits{
    .version = "0.0.1",
    .keySuffix = "_v0_0_1",
    .parameters = kParameters,
    .analysisWindow = WindowKind::kHamming,
    .synthesisWindow = WindowKind::kTriangle,
    .choosesWindowAfter = true,
    .averagesNoise = true,
    .network = NetworkKind::kScaledFeedForward,
    .networkBeforeKeys = true,
    .numbers = NumberStyle::kWhole,
};

}  // namespace ORVEL::NOISE_CANCELLER
