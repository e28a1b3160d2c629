#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>

/**
 * Everything in which the cleaner versions differ, as data. This header and the tables behind it use
 * neither MKL nor the cleaners: the command, the tests and the fuzz targets take versions from here.
 */
namespace ORVEL::NOISE_CANCELLER {

/** What a session is opened for. */
enum class SessionKind { kNoiseCleaning = 1, kVoiceActivity = 2 };

enum class WindowKind { kHamming, kTriangle, kVorbis };

/** How a version takes its tuning numbers. */
enum class NumberStyle {
  /** Whole numbers; dependent values are read only when their stage is on; an RM threshold of 0 is bad. */
  kWhole,
  /** Real numbers; the clip point is always read; an RM threshold of 0 is accepted. */
  kReal,
};

enum class FeatureKind {
  /** ln(s |X| + 1) of each bin. */
  kLogMagnitude,
  /** ln(s^2 P + 1000) of each compressed band. */
  kLogBandPower,
};

enum class NetworkKind {
  /** Feed-forward, with a scale and a shift behind each hidden layer. */
  kScaledFeedForward,
  kFeedForward,
  /** With a gated state that lasts as long as the cleaner. */
  kRecurrent,
};

/** How the gains below the RM threshold T are scaled; the two differ in the last bit only. */
enum class RmThresholdOrder {
  /** g * (1 / T) * g */
  kGainFirst,
  /** (1 / T) * g * g */
  kReciprocalFirst,
};

enum class ParameterType { kInt, kFloats, kFloatLists, kMatrices };

/** A value that a version's weight set must hold. */
struct RequiredParameter {
  const char* name;
  ParameterType type;
};

/** What v0.0.1 and v0.0.2 require, in the order in which it is checked. */
inline constexpr std::array kNoiseAverageParameters{
    RequiredParameter{"SampleRate", ParameterType::kInt},
    RequiredParameter{"FrameLength", ParameterType::kInt},
    RequiredParameter{"Step", ParameterType::kInt},
    RequiredParameter{"FiltrBegin", ParameterType::kInt},
    RequiredParameter{"FiltrEnd", ParameterType::kInt},
    RequiredParameter{"PreviewFrames", ParameterType::kInt},
    RequiredParameter{"NATFrameCount", ParameterType::kInt},
    RequiredParameter{"CoefficientNumber", ParameterType::kInt},
    RequiredParameter{"MU", ParameterType::kFloats},
    RequiredParameter{"SD", ParameterType::kFloats},
    RequiredParameter{"WeightLinear", ParameterType::kMatrices},
    RequiredParameter{"WeightNonLinear", ParameterType::kMatrices},
    RequiredParameter{"BaesLinear", ParameterType::kFloatLists},
    RequiredParameter{"BaesNonLinear", ParameterType::kFloatLists},
    RequiredParameter{"HeadenMultiplier", ParameterType::kFloatLists},
    RequiredParameter{"HeadenReducer", ParameterType::kFloatLists},
};

/** What v0.0.3 and v0.0.4 require. */
inline constexpr std::array kRescaledParameters{
    RequiredParameter{"WeightLinear", ParameterType::kMatrices},
    RequiredParameter{"WeightNonLinear", ParameterType::kMatrices},
    RequiredParameter{"BaesLinear", ParameterType::kFloatLists},
    RequiredParameter{"BaesNonLinear", ParameterType::kFloatLists},
    RequiredParameter{"SampleRate", ParameterType::kInt},
    RequiredParameter{"Step", ParameterType::kInt},
    RequiredParameter{"FiltrBegin", ParameterType::kInt},
    RequiredParameter{"FiltrEnd", ParameterType::kInt},
    RequiredParameter{"FrameLength", ParameterType::kInt},
    RequiredParameter{"PreviewFrames", ParameterType::kInt},
    RequiredParameter{"CoefficientNumber", ParameterType::kInt},
    RequiredParameter{"MU", ParameterType::kFloats},
    RequiredParameter{"SD", ParameterType::kFloats},
};

/** One version of a cleaner. */
struct CleanerTraits {
  /** The weight set's version string. */
  const char* version;
  /** End of the version's tuning keys. */
  const char* keySuffix;
  SessionKind kind = SessionKind::kNoiseCleaning;
  /** Checked in this order. */
  std::span<const RequiredParameter> parameters;

  WindowKind analysisWindow = WindowKind::kVorbis;
  WindowKind synthesisWindow = WindowKind::kVorbis;
  /** The synthesis window is a tuning key's, and with one the spectrum before analysis is masked. */
  bool choosesWindowAfter = false;

  FeatureKind features = FeatureKind::kLogMagnitude;
  /** The features are brought to a reference level. */
  bool rescales = false;
  /** Compression rate of the bands unless a tuning key sets it; bands come with kLogBandPower only. */
  long bandRate = 0;
  /** "MU" and "SD" may be shorter than the network's input and repeat. */
  bool repeatsStatistics = false;
  /** The network also takes an average of the noise removed so far. */
  bool averagesNoise = false;

  NetworkKind network = NetworkKind::kFeedForward;
  /** The network is checked before the tuning keys are read: it does not depend on them. */
  bool networkBeforeKeys = false;

  NumberStyle numbers = NumberStyle::kReal;
  RmThresholdOrder rmThresholdOrder = RmThresholdOrder::kGainFirst;
  /** May leave the network out on digital silence. */
  bool skipsSilence = false;
  bool amplifies = false;

  bool compressesBands() const { return features == FeatureKind::kLogBandPower; }
};

// Each version's traits are in the unit of its name; those of the detector beside the table.
struct NoiseCleaner_v0_0_1 {
  static const CleanerTraits traits;
};
struct NoiseCleaner_v0_0_2 {
  static const CleanerTraits traits;
};
struct NoiseCleaner_v0_0_3 {
  static const CleanerTraits traits;
};
struct NoiseCleaner_v0_0_4 {
  static const CleanerTraits traits;
};
struct NoiseCleaner_v0_0_5 {
  static const CleanerTraits traits;
};

/** All versions, oldest first, the detector last. */
std::span<const CleanerTraits* const> cleanerVersions();

/** The version of that name, or a null pointer. */
const CleanerTraits* findCleanerVersion(std::string_view version);

}  // namespace ORVEL::NOISE_CANCELLER
