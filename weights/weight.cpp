#include "weights/weight.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "utils/diagnostics.h"
#include "utils/orvel_exception.h"
#include "weights/weight_records.h"

namespace ORVEL::WEIGHTS {

namespace {

constexpr const char* kUnit = "weights/weight";

const std::string kVersion = "Version";
const std::string kSampleRate = "SampleRate";
const std::string kFrameLength = "FrameLength";

template <class List>
bool contains(const List& list, std::int32_t value) {
  return std::find(list.begin(), list.end(), value) != list.end();
}

[[noreturn]] void throwNoInformation() {
  throw UTILS::ORVEL_Exception("there are no needing Weight information in Weight ", kUnit, 221,
                               "getWeightInfo");
}

}  // namespace

bool Weight::load(const char* path) {
  BinaryFile file(path, 0);
  if (!readRecords(file, values_)) {
    values_.clear();
    error_ = "Corrupted weight file!";
    return false;
  }
  if (values_.size() == 0) {
    UTILS::printLine("Warning Nothing added from weight");
  }
  error_.clear();
  return true;
}

std::string getWeightVersion(const Weight& weight) {
  const auto version = weight.values().get<std::string>(kVersion);
  if (version == nullptr) {
    throw UTILS::ORVEL_Exception("there are no Weight version in Weight ", kUnit, 230,
                                 "getWeightVersion");
  }
  return *version;
}

WeightInfo getWeightInfo(const Weight& weight) {
  constexpr std::array kRates{8000, 16000, 32000};
  constexpr std::array kDurations{10, 15, 20, 30, 32, 40};
  const auto sampleRate = weight.values().get<int>(kSampleRate);
  const auto frameLength = weight.values().get<int>(kFrameLength);
  if (sampleRate == nullptr || frameLength == nullptr || !contains(kRates, *sampleRate)) {
    throwNoInformation();
  }
  // 32-bit arithmetic of the file format; computed unsigned, where running over is defined.
  const auto scaled =
      static_cast<std::int32_t>(static_cast<std::uint32_t>(*frameLength) * std::uint32_t{1000});
  const std::int32_t duration = scaled / *sampleRate;
  if (!contains(kDurations, duration)) {
    throwNoInformation();
  }
  return {duration, *sampleRate};
}

bool isVoiceActivityVersion(const std::string& version) {
  return version.find("VAD") != std::string::npos;
}

}  // namespace ORVEL::WEIGHTS
