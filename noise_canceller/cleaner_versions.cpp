#include "noise_canceller/cleaner_versions.h"

#include <array>

namespace ORVEL::NOISE_CANCELLER {

namespace {

using enum ParameterType;

constexpr std::array kDetectorParameters{
    RequiredParameter{"MU", kFloats},
    RequiredParameter{"SD", kFloats},
    RequiredParameter{"WeightLinear", kMatrices},
    RequiredParameter{"WeightNonLinear", kMatrices},
    RequiredParameter{"BaesLinear", kFloatLists},
    RequiredParameter{"BaesNonLinear", kFloatLists},
    RequiredParameter{"WeightGRU", kMatrices},
    RequiredParameter{"BaesGRU", kFloatLists},
    RequiredParameter{"SampleRate", kInt},
    RequiredParameter{"FrameLength", kInt},
};

constexpr CleanerTraits kVadCleaner_v0_0_1{
    .version = "VAD_0.0.1",
    .keySuffix = "_v0_0_1",
    .kind = SessionKind::kVoiceActivity,
    .parameters = kDetectorParameters,
    .analysisWindow = WindowKind::kHamming,
    .network = NetworkKind::kRecurrent,
};

constexpr std::array kVersions{
    &NoiseCleaner_v0_0_1::traits, &NoiseCleaner_v0_0_2::traits, &NoiseCleaner_v0_0_3::traits,
    &NoiseCleaner_v0_0_4::traits, &NoiseCleaner_v0_0_5::traits, &kVadCleaner_v0_0_1,
};

}  // namespace

std::span<const CleanerTraits* const> cleanerVersions() { return kVersions; }

const CleanerTraits* findCleanerVersion(std::string_view version) {
  for (const CleanerTraits* known : kVersions) {
    if (version == known->version) {
      return known;
    }
  }
  return nullptr;
}

}  // namespace ORVEL::NOISE_CANCELLER
