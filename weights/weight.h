#pragma once

#include <cstdint>
#include <string>

#include "containers/any_map.h"
#include "utils/non_copyable.h"

namespace ORVEL::WEIGHTS {

/**
 * One loaded weight set: the named values of one weight file. Filled once by `load`, shared read-only
 * afterwards.
 */
class Weight : private UTILS::NonCopyable {
 public:
  /**
   * Reads a weight file. A truncated file gives the records that were whole.
   *
   * @return false, with an empty map and the reason in error(), when the file cannot be read or ends
   *         inside a record's name.
   */
  bool load(const char* path);

  const CONTAINERS::AnyMap& values() const { return values_; }
  CONTAINERS::AnyMap& values() { return values_; }
  const std::string& error() const { return error_; }

 private:
  CONTAINERS::AnyMap values_;
  std::string error_;
};

/** What the session layer needs to know of a weight set before it builds a cleaner. */
struct WeightInfo {
  std::int32_t frameDurationMs;
  std::int32_t sampleRate;
};

/** The cleaner version that the weights are for; throws ORVEL_Exception when there is none. */
std::string getWeightVersion(const Weight& weight);

/**
 * Frame duration and sample rate; throws ORVEL_Exception unless the rate is 8000, 16000 or 32000 Hz
 * and the duration (rounded down) 10, 15, 20, 30, 32 or 40 ms.
 */
WeightInfo getWeightInfo(const Weight& weight);

/** True for the version strings of voice-activity models: those that contain "VAD". */
bool isVoiceActivityVersion(const std::string& version);

}  // namespace ORVEL::WEIGHTS
