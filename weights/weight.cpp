#include "weights/weight.h"

#include <sha256.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <numeric>
#include <vector>

#include "containers/matrix.h"
#include "utils/native_path.h"
#include "utils/orvel_exception.h"
#include "utils/regular_file.h"

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

/** The SHA-256 of the bytes, as 64 hexadecimal digits in lower case. */
std::string sha256(std::string_view bytes) {
  SHA256_CTX state{};
  SHA256Init(&state);
  SHA256Update(&state, reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  std::array<std::uint8_t, SHA256_DIGEST_LENGTH> digest{};
  SHA256Final(digest.data(), &state);
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  for (const std::uint8_t byte : digest) {
    text += kDigits[byte >> 4U];
    text += kDigits[byte & 15U];
  }
  return text;
}

/** The whole weight files that somebody uses. */
struct OpenWeightFiles {
  std::mutex mutex;
  std::map<UTILS::FileIdentity, std::weak_ptr<const Weight>> byIdentity;

  // Never destroyed: contexts may be used while the process ends.
  static OpenWeightFiles& get() {
    static auto& files = *new OpenWeightFiles;
    return files;
  }

  std::shared_ptr<const Weight> find(const UTILS::FileIdentity& identity) {
    const std::lock_guard lock(mutex);
    const auto known = byIdentity.find(identity);
    return known == byIdentity.end() ? nullptr : known->second.lock();
  }

  /** The weights that are shared under that identity: another thread may have been faster. */
  std::shared_ptr<const Weight> add(const UTILS::FileIdentity& identity,
                                    std::shared_ptr<const Weight> weight) {
    const std::lock_guard lock(mutex);
    std::erase_if(byIdentity, [](const auto& entry) { return entry.second.expired(); });
    const auto [entry, isNew] = byIdentity.try_emplace(identity, weight);
    if (isNew) {
      return weight;
    }
    if (auto first = entry->second.lock()) {
      return first;
    }
    entry->second = weight;
    return weight;
  }
};

std::size_t elements(const std::vector<float>& vector) { return vector.size(); }
std::size_t elements(const CONTAINERS::Matrix& matrix) { return matrix.data.size(); }

template <class T>
std::uint64_t countElements(const std::vector<T>& list, bool leavesOutLast) {
  const std::size_t count = leavesOutLast && !list.empty() ? list.size() - 1 : list.size();
  return std::accumulate(
      list.begin(), list.begin() + static_cast<std::ptrdiff_t>(count), std::uint64_t{0},
      [](std::uint64_t sum, const T& element) { return sum + elements(element); });
}

}  // namespace

bool Weight::load(const char* path, UTILS::Diagnostics& diagnostics) {
  const UTILS::FileContent file =
      UTILS::RegularFile(UTILS::nativePath(path)).read(kMostWeightBytes);
  if (!file.problem.empty()) {
    error_ = "Corrupted weight file!";
    return false;
  }
  parse(file.bytes);
  if (error_.empty() && values_.size() == 0) {
    diagnostics.warnLine("Warning Nothing added from weight");
  }
  return error_.empty();
}

std::string problemOfDigest(std::string_view bytes, const std::string& wanted) {
  return wanted.empty() || sha256(bytes) == wanted
             ? ""
             : "has not the SHA-256 that the control file names (damaged, or of another model?)";
}

WeightFile openWeightFile(const std::string& path, const std::string& digest) {
  const UTILS::RegularFile file(UTILS::nativePath(path));
  const auto identity = file.identity();
  OpenWeightFiles& files = OpenWeightFiles::get();
  std::shared_ptr<const Weight> shared = identity.has_value() ? files.find(*identity) : nullptr;
  if (shared != nullptr && (digest.empty() || digest == shared->digest())) {
    return {std::move(shared), {}};
  }
  UTILS::FileContent content = file.read(kMostWeightBytes);
  if (content.problem.empty()) {
    content.problem = problemOfDigest(content.bytes, digest);
  }
  if (!content.problem.empty()) {
    return {nullptr, std::move(content.problem)};
  }
  if (shared != nullptr) {
    return {std::move(shared), {}};
  }
  auto weight = std::make_shared<Weight>();
  std::string problem = weight->parse(content.bytes);
  weight->setDigest(digest);
  if (!weight->error().empty()) {
    return {nullptr, std::move(problem)};
  }
  if (!problem.empty() || !identity.has_value()) {
    return {std::move(weight), std::move(problem)};
  }
  return {files.add(*identity, std::move(weight)), {}};
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

std::uint64_t countNetworkWeights(const Weight& weight) {
  const auto version = weight.values().get<std::string>(kVersion);
  const bool detects = version != nullptr && isVoiceActivityVersion(*version);
  const std::string unusedMatrix = detects ? "WeightNonLinear" : "WeightLinear";
  const std::string unusedVector = detects ? "BaesNonLinear" : "BaesLinear";
  std::uint64_t count = 0;
  for (const auto& [name, held] : weight.values()) {
    if (const auto matrices = weight.values().get<std::vector<CONTAINERS::Matrix>>(name)) {
      count += countElements(*matrices, name == unusedMatrix);
    } else if (const auto vectors = weight.values().get<std::vector<std::vector<float>>>(name)) {
      count += countElements(*vectors, name == unusedVector);
    }
  }
  return count;
}

}  // namespace ORVEL::WEIGHTS
