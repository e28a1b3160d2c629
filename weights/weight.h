#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <typeindex>
#include <utility>

#include "containers/any_map.h"
#include "utils/diagnostics.h"
#include "utils/non_copyable.h"

namespace ORVEL::WEIGHTS {

/**
 * One loaded weight set: the named values of one weight file. Filled once, shared read-only afterwards,
 * also between instances and threads.
 */
class Weight : private UTILS::NonCopyable {
 public:
  /**
   * Reads a weight file by lenient rules: of a truncated file the records that are whole are kept.
   *
   * @return false, with an empty map and the reason in error(), when the file cannot be read or ends
   *         inside a record's name.
   */
  bool load(const char* path, UTILS::Diagnostics& diagnostics = UTILS::standardStreams());

  /**
   * Takes the content of a weight file.
   *
   * @return what is wrong with it, such as "ends inside the record WeightLinear (truncated?)"; empty when
   *         it is whole. The records that could be read are kept, as load() does, none when error() has a
   *         text.
   */
  std::string parse(std::string_view bytes);

  const CONTAINERS::AnyMap& values() const { return values_; }
  CONTAINERS::AnyMap& values() { return values_; }
  const std::string& error() const { return error_; }

  /**
   * An object made of these weights alone, such as a network's packed form: made on first use and shared
   * by every model that uses the weights, also from different threads. `name` must tell objects made
   * with different parameters apart.
   */
  template <class T, class Make>
  std::shared_ptr<const T> obtain(const std::string& name, Make make) const {
    const std::lock_guard lock(derivedMutex_);
    const std::pair key(std::type_index(typeid(T)), name);
    if (const auto known = derived_.find(key); known != derived_.end()) {
      return std::static_pointer_cast<const T>(known->second);
    }
    auto made = std::make_shared<const T>(make());
    derived_.emplace(key, made);
    return made;
  }

  /** The SHA-256 that the bytes were compared with; empty when they were not. */
  const std::string& digest() const { return digest_; }
  void setDigest(const std::string& digest) { digest_ = digest; }

 private:
  CONTAINERS::AnyMap values_;
  std::string error_;
  std::string digest_;
  mutable std::mutex derivedMutex_;
  mutable std::map<std::pair<std::type_index, std::string>, std::shared_ptr<const void>> derived_;
};

/**
 * The weights of a file. Those of a whole file are shared with everybody in the process who uses the same
 * file, for as long as somebody does.
 */
struct WeightFile {
  /** Null when the file cannot be read, has another digest or ends inside a record's name. */
  std::shared_ptr<const Weight> weight;
  /** What is wrong; empty when the file is whole. */
  std::string problem;
};

/** Twenty-five times the largest network that runs in real time. */
inline constexpr std::uint64_t kMostWeightBytes = std::uint64_t{256} << 20U;

/** @param digest the SHA-256 that the file must have; any when empty. */
WeightFile openWeightFile(const std::string& path, const std::string& digest = "");

/** What is wrong when the bytes have another SHA-256 than the wanted one; empty when nothing is wanted. */
std::string problemOfDigest(std::string_view bytes, const std::string& wanted);

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

/**
 * Numbers that the network multiplies or adds: the elements of all lists of vectors and matrices, without
 * the last linear layer of a noise cleaner and the last non-linear one of a detector, which no version
 * reads.
 */
std::uint64_t countNetworkWeights(const Weight& weight);

}  // namespace ORVEL::WEIGHTS
