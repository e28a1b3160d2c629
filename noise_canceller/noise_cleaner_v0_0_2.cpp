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

// As v0.0.1 with one power-complementary window for analysis and synthesis.
constinit const CleanerTraits NoiseCleaner_v0_0_2::traits{
    .version = "0.0.2",
    .keySuffix = "_v0_0_2",
    .parameters = kParameters,
    .averagesNoise = true,
    .network = NetworkKind::kScaledFeedForward,
    .networkBeforeKeys = true,
    .numbers = NumberStyle::kWhole,
    .rmThresholdOrder = RmThresholdOrder::kReciprocalFirst,
};

}  // namespace ORVEL::NOISE_CANCELLER
