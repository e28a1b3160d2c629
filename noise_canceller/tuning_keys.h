#pragma once

#include <memory>
#include <string>

#include "containers/any_map.h"

namespace ORVEL::NOISE_CANCELLER {

/** A model's tuning keys as one cleaner version sees them: those that end in its suffix. */
class TuningKeys {
 public:
  /** `suffix` such as "_v0_0_1"; the map must outlive the object. */
  TuningKeys(const CONTAINERS::AnyMap& keys, const char* suffix) : keys_(keys), suffix_(suffix) {}

  /** The text of a key, or an empty pointer when it is not set. */
  std::shared_ptr<std::string> text(const char* stem) const;

  /** Sets the value to whether the key is exactly "TRUE"; an absent key leaves it. */
  void readSwitch(const char* stem, bool& value) const;
  /** Sets the value to the key's decimal number; an absent key leaves it. */
  void readReal(const char* stem, float& value) const;
  /** Sets the value to the key's whole decimal number; an absent key leaves it. */
  void readWhole(const char* stem, float& value) const;

 private:
  const CONTAINERS::AnyMap& keys_;
  const char* suffix_;
};

}  // namespace ORVEL::NOISE_CANCELLER
