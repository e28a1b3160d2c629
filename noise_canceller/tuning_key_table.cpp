#include "noise_canceller/tuning_key_table.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace ORVEL::NOISE_CANCELLER {

namespace {

bool cleansNoise(const CleanerTraits& version) {
  return version.kind == SessionKind::kNoiseCleaning;
}
bool choosesWindowAfter(const CleanerTraits& version) { return version.choosesWindowAfter; }
bool rescales(const CleanerTraits& version) { return version.rescales; }
bool compressesBands(const CleanerTraits& version) { return version.compressesBands(); }
bool skipsSilence(const CleanerTraits& version) { return version.skipsSilence; }
bool amplifies(const CleanerTraits& version) { return version.amplifies; }
bool detectsVoice(const CleanerTraits& version) {
  return version.kind == SessionKind::kVoiceActivity;
}

constexpr const char* kSampleUnit = "16-bit steps";
constexpr const char* kEnergyUnit = "mean square of 16-bit samples";

// The order of the rows is the order of reading, and with it that of the warnings.
constexpr std::array kKeys{
    TuningKey{
        .key = Key::kSmoothing,
        .stem = "ORVEL_SMOOT_COEF",
        .kind = KeyKind::kReal,
        .isReadBy = cleansNoise,
        .fallback = 1.0,
        .range = KeyRange{.least = 0.0, .most = 1.0, .aboveLeast = true},
        .warning = "WARNING OF SMOOTH COEF NUMBER VALUE. IT MUST BE iIN INTERVALK (0,1] \n DEFAULT "
                   "VALUE 1.f",
        .meaning = "Share of the new gains in each frame; the rest comes from the frame before. "
                   "Lower is calmer and slower.",
    },
    TuningKey{
        .key = Key::kSoftModification,
        .stem = "ORVEL_SMOOT_RM_MODIFY",
        .kind = KeyKind::kSwitch,
        .isReadBy = cleansNoise,
        .meaning = "Leaves gains below 0.05 as they are instead of squaring them: weak speech is "
                   "removed less.",
    },
    TuningKey{
        .key = Key::kSquareHighFrequencies,
        .stem = "ORVEL_HIGH_FREQ_SMOOT",
        .kind = KeyKind::kSwitch,
        .isReadBy = cleansNoise,
        .meaning = "Squares the gains of the upper half of the band once more: less hiss, duller "
                   "sound.",
    },
    TuningKey{
        .key = Key::kWindowAfter,
        .stem = "ORVEL_ENABLE_WINDOW_AFTER",
        .kind = KeyKind::kSwitch,
        .isReadBy = choosesWindowAfter,
        .fallback = 1.0,
        .meaning = "Windows the output frames instead of the input frames.",
    },
    TuningKey{
        .key = Key::kWindowAfterKind,
        .stem = "ORVEL_WINDOW_AFTER",
        .kind = KeyKind::kChoice,
        .isReadBy = choosesWindowAfter,
        .condition = KeyCondition{Key::kWindowAfter},
        .defaultWord = "TRIANGL",
        .otherWord = "HAMMING",
        .meaning = "Window of the output frames.",
    },
    TuningKey{
        .key = Key::kClipFix,
        .stem = "ORVEL_ENABLE_CLIP_FIX",
        .kind = KeyKind::kSwitch,
        .isReadBy = cleansNoise,
        .meaning = "Lowers an output frame whose highest sample passes the clip fix point.",
    },
    TuningKey{
        .key = Key::kClipFixPoint,
        .stem = "ORVEL_CLIP_FIX_POINT",
        .kind = KeyKind::kNumber,
        .isReadBy = cleansNoise,
        .fallback = 25000.0,
        .range = KeyRange{.least = 1.0, .most = 32768.0},
        .warning = "WARNING OF CLIP_FIX_POINT NUMBER VALUE. IT MUST BE IN INTERVALK (1,32768) \n "
                   "DEFAULT VALUE 25000",
        .condition = KeyCondition{.key = Key::kClipFix, .onlyWhole = true},
        .unit = kSampleUnit,
        .meaning = "Highest sample that the clip fix lets through.",
    },
    TuningKey{
        .key = Key::kSkipSilence,
        .stem = "ORVEL_SKIP_FRAME",
        .kind = KeyKind::kSwitch,
        .isReadBy = skipsSilence,
        .meaning = "Does not run the network on digital silence: saves time, and the network's "
                   "state stays as it was.",
    },
    TuningKey{
        .key = Key::kVolumeUp,
        .stem = "ORVEL_VOLUME_UP",
        .kind = KeyKind::kSwitch,
        .isReadBy = amplifies,
        .meaning = "Amplifies the output; turns the clip fix on.",
    },
    TuningKey{
        .key = Key::kVolumeUpPercent,
        .stem = "ORVEL_VOLUME_UP_PERCENT",
        .kind = KeyKind::kReal,
        .isReadBy = amplifies,
        .range = KeyRange{.least = 0.0, .most = 200.0, .aboveLeast = true, .belowMost = true},
        .condition = KeyCondition{Key::kVolumeUp},
        // Louder output may clip.
        .consequence =
            KeyConsequence{Key::kClipFix, "WARNING: Enabled Clip fix, because VolumeUp is Enabled"},
        .unit = "%",
        .meaning = "By how much the output is amplified: 50 makes it 1.5 times as large.",
    },
    TuningKey{
        .key = Key::kThresholdCut,
        .stem = "ORVEL_ENABLE_THRESH_CUT",
        .kind = KeyKind::kSwitch,
        .isReadBy = cleansNoise,
        .meaning = "Mutes stretches that are far quieter than the loud parts so far.",
    },
    TuningKey{
        .key = Key::kThresholdCutReference,
        .stem = "ORVEL_THRESH_CUT_REF_EN",
        .kind = KeyKind::kNumber,
        .isReadBy = cleansNoise,
        .fallback = 100.0,
        .range = KeyRange{.least = 1.0, .most = 1000.0},
        .warning = "WARNING OF THRESH_CUT_REF VALUE. IT MUST BE iIN INTERVALK [1,1000] \n DEFAULT "
                   "VALUE 100",
        .condition = KeyCondition{Key::kThresholdCut},
        .unit = kEnergyUnit,
        .meaning = "Energy from which a frame counts as loud for the threshold cut.",
    },
    TuningKey{
        .key = Key::kRmThreshold,
        .stem = "ORVEL_ENABLE_RM_THRESHOLD",
        .kind = KeyKind::kSwitch,
        .isReadBy = cleansNoise,
        .meaning = "Pushes gains below the RM threshold further down.",
    },
    TuningKey{
        .key = Key::kRmThresholdValue,
        .stem = "ORVEL_RM_THRESHOLD",
        .kind = KeyKind::kReal,
        .isReadBy = cleansNoise,
        .fallback = 0.5,
        .range = KeyRange{.least = 0.0, .most = 1.0, .onlyWholeAboveLeast = true},
        .warning = "WARNING OF RM_THRESHOLD VALUE. IT MUST BE iIN INTERVALK [0.0,1.0] \n DEFAULT "
                   "VALUE 0.5",
        .condition = KeyCondition{Key::kRmThreshold},
        .meaning = "Gain below which the RM threshold acts.",
    },
    TuningKey{
        .key = Key::kRescale,
        .stem = "ORVEL_ENABLE_RESCALE",
        .kind = KeyKind::kSwitch,
        .isReadBy = rescales,
        .fallback = 1.0,
        .meaning = "Brings the features that the network takes to a reference level.",
    },
    TuningKey{
        .key = Key::kRescaleAmplitude,
        .stem = "ORVEL_RESCALE_REF_AMPL",
        .kind = KeyKind::kReal,
        .isReadBy = rescales,
        .fallback = 2000.0,
        // The references follow the threshold's switch, not the rescale one.
        .condition = KeyCondition{Key::kRmThreshold},
        .unit = kSampleUnit,
        .meaning = "Reference level of the features.",
    },
    TuningKey{
        .key = Key::kRescaleEnergy,
        .stem = "ORVEL_RESCALE_REF_EN",
        .kind = KeyKind::kReal,
        .isReadBy = rescales,
        .fallback = 100.0,
        .condition = KeyCondition{Key::kRmThreshold},
        .unit = kEnergyUnit,
        .meaning = "Energy from which a frame counts for the level.",
    },
    TuningKey{
        .key = Key::kCompressRate,
        .stem = "ORVEL_COMPRESS_RATE",
        .kind = KeyKind::kWhole,
        .isReadBy = compressesBands,
        .sharedSuffix = "_v0_0_5",
        .meaning = "How strongly bins are pooled into bands. Belongs to the weights: a rate that "
                   "they are not made for is refused.",
    },
    TuningKey{
        .key = Key::kVadStateReset,
        .stem = "ORVEL_VAD_ENABLE_STATE_RESET",
        .kind = KeyKind::kSwitch,
        .isReadBy = detectsVoice,
        .meaning = "Clears the detector's state after a long time without voice.",
    },
};

constexpr bool rowsFollowTheEnumeration() {
  for (std::size_t i = 0; i < kKeys.size(); ++i) {
    if (kKeys[i].key != static_cast<Key>(i)) {
      return false;
    }
  }
  return true;
}
static_assert(rowsFollowTheEnumeration());

std::string decimal(double value) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%g", value);
  return text.data();
}

std::string numbersOf(const TuningKey& key) {
  if (!key.range.has_value()) {
    return key.kind == KeyKind::kWhole ? "a whole number" : "a number";
  }
  const KeyRange& range = *key.range;
  if (!range.aboveLeast && !range.belowMost) {
    return decimal(range.least) + " to " + decimal(range.most);
  }
  return decimal(range.least) + (range.aboveLeast ? " < x " : " <= x ") +
         (range.belowMost ? "< " : "<= ") + decimal(range.most);
}

// Whole and real numbers have defaults per version where the versions have them.
std::string defaultsOf(const TuningKey& key) {
  const std::vector<const CleanerTraits*> versions = readersOf(key);
  const double first = defaultOf(key, *versions.front());
  const bool same =
      std::all_of(versions.begin(), versions.end(),
                  [&](const CleanerTraits* version) { return defaultOf(key, *version) == first; });
  if (same) {
    const bool isNone = key.range.has_value() && first <= key.range->least && key.range->aboveLeast;
    return isNone ? "none" : decimal(first);
  }
  std::string text;
  for (const CleanerTraits* version : versions) {
    text += (text.empty() ? "" : ", ") + decimal(defaultOf(key, *version)) + " in version " +
            version->version;
  }
  return text;
}

// "0.0.1, 0.0.2": those versions of the key that take whole numbers.
std::string wholeVersionsOf(const TuningKey& key) {
  std::string text;
  for (const CleanerTraits* version : readersOf(key)) {
    if (version->numbers == NumberStyle::kWhole) {
      text += (text.empty() ? "" : ", ") + std::string(version->version);
    }
  }
  return text;
}

}  // namespace

std::span<const TuningKey> tuningKeys() { return kKeys; }

const TuningKey& tuningKey(Key key) { return kKeys[static_cast<std::size_t>(key)]; }

std::string fullName(const TuningKey& key, const CleanerTraits& version) {
  const bool isShared = *key.sharedSuffix != '\0';
  return std::string(key.stem) + (isShared ? key.sharedSuffix : version.keySuffix);
}

double defaultOf(const TuningKey& key, const CleanerTraits& version) {
  return key.key == Key::kCompressRate ? static_cast<double>(version.bandRate) : key.fallback;
}

std::vector<const CleanerTraits*> readersOf(const TuningKey& key) {
  std::vector<const CleanerTraits*> readers;
  for (const CleanerTraits* version : cleanerVersions()) {
    if (key.isReadBy(*version)) {
      readers.push_back(version);
    }
  }
  return readers;
}

const TuningKey* findTuningKey(std::string_view name) {
  for (const TuningKey& key : kKeys) {
    for (const CleanerTraits* version : readersOf(key)) {
      if (fullName(key, *version) == name) {
        return &key;
      }
    }
  }
  return nullptr;
}

std::string acceptedValues(const TuningKey& key) {
  std::string text;
  if (key.kind == KeyKind::kSwitch) {
    text = std::string("TRUE or off, default ") + (key.fallback != 0.0 ? "TRUE" : "off");
  } else if (key.kind == KeyKind::kChoice) {
    text = std::string(key.defaultWord) + " or " + key.otherWord + ", default " + key.defaultWord;
  } else {
    text = numbersOf(key) + ", default " + defaultsOf(key);
    if (key.kind == KeyKind::kNumber) {
      text += "; whole in versions " + wholeVersionsOf(key);
    }
    if (key.range.has_value() && key.range->onlyWholeAboveLeast) {
      text += "; above " + decimal(key.range->least) + " in versions " + wholeVersionsOf(key);
    }
  }
  if (key.condition.has_value()) {
    text += std::string("; read only with ") + tuningKey(key.condition->key).stem + " on";
    if (key.condition->onlyWhole) {
      text += " in versions " + wholeVersionsOf(key);
    }
  }
  return text;
}

}  // namespace ORVEL::NOISE_CANCELLER
