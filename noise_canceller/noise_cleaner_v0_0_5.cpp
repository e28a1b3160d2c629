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
    RequiredParameter{"WeightGRU", kMatrices},
    RequiredParameter{"BaesGRU", kFloatLists},
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

// As v0.0.4 with a recurrent network. May leave the network out on digital silence and amplify the
// output.
constinit const CleanerTraits NoiseCleaner_v0_0_5::traits{
    .version = "0.0.5",
    .keySuffix = "_v0_0_5",
    .parameters = kParameters,
    .features = FeatureKind::kLogBandPower,
    .rescales = true,
    .bandRate = 2,
    .repeatsStatistics = true,
    .network = NetworkKind::kRecurrent,
    .skipsSilence = true,
    .amplifies = true,
};

}  // namespace ORVEL::NOISE_CANCELLER
