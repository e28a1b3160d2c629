// Every version that the library knows, from its own table: a small model of each and tuning keys that
// switch its stages on or off.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "noise_canceller/tuning_key_table.h"
#include "tests/support/test_model.h"

namespace orvel_test {

using ORVEL::NOISE_CANCELLER::cleanerVersions;

inline bool isDetector(const CleanerTraits& version) {
  return version.kind == ORVEL::NOISE_CANCELLER::SessionKind::kVoiceActivity;
}

// Of noise cleaners, oldest first.
inline std::vector<const CleanerTraits*> noiseCleaners() {
  std::vector<const CleanerTraits*> cleaners;
  for (const CleanerTraits* version : cleanerVersions())
    if (!isDetector(*version)) cleaners.push_back(version);
  return cleaners;
}

inline Shape shapeOf(const CleanerTraits& version) { return {.version = version.version}; }

// Every stage that a key can switch, on with a number well inside its range, or off; the compression
// rate belongs to the model's shape and stays.
inline Keys allStages(const CleanerTraits& version, bool on = true) {
  using ORVEL::NOISE_CANCELLER::KeyKind;
  Keys keys;
  for (const auto& key : ORVEL::NOISE_CANCELLER::tuningKeys()) {
    if (!key.isReadBy(version) || key.key == ORVEL::NOISE_CANCELLER::Key::kCompressRate) continue;
    std::string value = on ? "TRUE" : "FALSE";
    if (key.kind == KeyKind::kChoice) {
      value = on ? key.otherWord : key.defaultWord;
    } else if (key.kind != KeyKind::kSwitch) {
      const double most = key.range ? std::min(key.range->most, 1000.0) : 100.0;
      const double least = key.range ? key.range->least : 0.0;
      value = std::to_string(least + 0.4 * (most - least));
    }
    keys[fullName(key, version)] = value;
  }
  return keys;
}

}  // namespace orvel_test
