#include "noise_canceller/tuning_keys.h"

#include <cstdlib>

namespace ORVEL::NOISE_CANCELLER {

std::shared_ptr<std::string> TuningKeys::text(const char* stem) const {
  return keys_.get<std::string>(std::string(stem) + suffix_);
}

void TuningKeys::readSwitch(const char* stem, bool& value) const {
  if (const auto set = text(stem)) {
    value = *set == "TRUE";
  }
}

void TuningKeys::readReal(const char* stem, float& value) const {
  if (const auto set = text(stem)) {
    value = static_cast<float>(std::atof(set->c_str()));
  }
}

void TuningKeys::readWhole(const char* stem, float& value) const {
  if (const auto set = text(stem)) {
    value = static_cast<float>(std::strtol(set->c_str(), nullptr, 10));
  }
}

}  // namespace ORVEL::NOISE_CANCELLER
