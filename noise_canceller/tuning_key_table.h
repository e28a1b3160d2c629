#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "noise_canceller/cleaner_versions.h"

/**
 * The tuning keys of all versions as one table: what a control file may set, in the order in which the
 * cleaners read it. Plain data, without MKL or the cleaners.
 */
namespace ORVEL::NOISE_CANCELLER {

/** The rows of the table, in its order. */
enum class Key {
  kSmoothing,
  kSoftModification,
  kSquareHighFrequencies,
  kWindowAfter,
  kWindowAfterKind,
  kClipFix,
  kClipFixPoint,
  kSkipSilence,
  kVolumeUp,
  kVolumeUpPercent,
  kThresholdCut,
  kThresholdCutReference,
  kRmThreshold,
  kRmThresholdValue,
  kRescale,
  kRescaleAmplitude,
  kRescaleEnergy,
  kCompressRate,
  kVadStateReset,
};

enum class KeyKind {
  /** On for exactly "TRUE". */
  kSwitch,
  /** A decimal number. */
  kReal,
  /** A decimal number; whole in the versions of NumberStyle::kWhole. */
  kNumber,
  /** A whole decimal number. */
  kWhole,
  /** One of two words: the default, and the one that counts as on. Any other is the default. */
  kChoice,
};

/** What a number must be; outside the range it is the default. */
struct KeyRange {
  double least;
  double most;
  /** The bound itself is not in the range. */
  bool aboveLeast = false;
  bool belowMost = false;
  /** `aboveLeast` holds for the versions of NumberStyle::kWhole only. */
  bool onlyWholeAboveLeast = false;
};

/** The switch that must be on for a key to be read. */
struct KeyCondition {
  Key key;
  /** The condition holds for the versions of NumberStyle::kWhole only; the others always read it. */
  bool onlyWhole = false;
};

/** A switch that a key turns on where its value is in range, and the line that says so. */
struct KeyConsequence {
  Key key;
  const char* warning;
};

/** One row. */
struct TuningKey {
  Key key;
  /** The key without its version's suffix. */
  const char* stem;
  KeyKind kind;
  /** Whether a version has the key. */
  bool (*isReadBy)(const CleanerTraits& version);
  /** For a switch 1 is on. The compression rate's is its version's instead. */
  double fallback = 0.0;
  /** Without a range every number is taken. */
  std::optional<KeyRange> range = {};
  /** Text for a value out of range, as the library has always printed it; empty: nothing is printed. */
  const char* warning = "";
  /** Without a condition the key is always read. */
  std::optional<KeyCondition> condition = {};
  std::optional<KeyConsequence> consequence = {};
  /** The suffix where all versions read the key under that of one; otherwise empty. */
  const char* sharedSuffix = "";
  /** The two words of a choice: the default, then the other. */
  const char* defaultWord = "";
  const char* otherWord = "";
  /** Unit of the value; empty for a switch, a word or a plain number. */
  const char* unit = "";
  /** One or two sentences for a user. */
  const char* meaning = "";
};

/** All rows, in the order in which the keys are read. */
std::span<const TuningKey> tuningKeys();
const TuningKey& tuningKey(Key key);

/** The key as the version's control files spell it, such as "ORVEL_SMOOT_COEF_v0_0_5". */
std::string fullName(const TuningKey& key, const CleanerTraits& version);
/** The version's default: 1 or 0 for a switch, 0 for a choice. */
double defaultOf(const TuningKey& key, const CleanerTraits& version);
/** The versions that read the key, oldest first. */
std::vector<const CleanerTraits*> readersOf(const TuningKey& key);
/** The row of a full name that some version reads, or a null pointer. */
const TuningKey* findTuningKey(std::string_view fullName);
/** What the key accepts, its default and when it is read, such as "1 to 32768, default 25000". */
std::string acceptedValues(const TuningKey& key);

}  // namespace ORVEL::NOISE_CANCELLER
