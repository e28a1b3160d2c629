/* Sessions of ORVEL for C++20, for mono audio in whole frames; include orvel/orvel.hpp. */
#ifndef ORVEL_ORVEL_SESSION_HPP
#define ORVEL_ORVEL_SESSION_HPP

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "orvel/orvel_library.hpp"

namespace orvel {

/** Sample rates that the library takes, Hz. */
inline constexpr std::array kSampleRates{8000,  12000, 16000, 24000, 32000,
                                         44100, 48000, 88200, 96000};
/** Durations of a frame that Cleaner and Detector take, ms. */
inline constexpr std::array kFrameDurations{10, 20, 30, 40};

/** What a Cleaner is opened with. */
struct CleanerOptions {
  int inputRate = 0;
  int outputRate = 0;      ///< 0: as the input
  int frameMs = 10;        ///< one of kFrameDurations
  std::string model = {};  ///< empty: the loaded one nearest to inputRate without being above it
};

/** What a Detector is opened with. */
struct DetectorOptions {
  int rate = 0;
  int frameMs = 10;        ///< detectors are made for 10
  std::string model = {};  ///< empty: chosen as for a Cleaner
};

/** What a session has counted since it was created. */
struct Statistics {
  std::uint64_t frames;        // processed, those that failed included
  std::uint64_t failedFrames;  // that the arithmetic could not process
  std::uint64_t stateResets;   // times the model's state became infinite or NaN and was cleared
};

namespace detail {

inline const char* nameOrNull(const std::string& name) noexcept {
  return name.empty() ? nullptr : name.c_str();
}

/** An open session; closes itself. */
class Session {
 public:
  using Close = int (*)(void*);
  Session(std::shared_ptr<const Context> context, void* handle, Close close, const char* creator)
      : context_(std::move(context)), handle_(handle), close_(close) {
    if (handle_ == nullptr) context_->fail(2, creator);
  }
  Session(Session&& other) noexcept
      : context_(std::move(other.context_)),
        handle_(std::exchange(other.handle_, nullptr)),
        close_(other.close_) {}
  Session& operator=(Session other) noexcept {
    std::swap(context_, other.context_);
    std::swap(handle_, other.handle_);
    std::swap(close_, other.close_);
    return *this;
  }
  ~Session() {
    if (handle_ != nullptr) close_(handle_);
  }

  void* handle() const noexcept { return handle_; }
  void check(int status, const char* call) const {
    if (status == 0) return;
    if (context_ == nullptr) throw Error(status, std::string(call) + ": a moved-from session");
    context_->fail(status, call);
  }
  Statistics statistics() const {
    OrvSessionStatistics counts{};
    counts.size = sizeof counts;
    check(Orv_Session_GetStatistics(handle_, &counts), "Orv_Session_GetStatistics");
    return {counts.frames, counts.failedFrames, counts.stateResets};
  }

 private:
  std::shared_ptr<const Context> context_;
  void* handle_;
  Close close_;
};

inline void requireSize(const char* function, const char* argument, std::size_t size,
                        std::size_t expected, const char* unit = " samples") {
  if (size == expected) return;
  throw Error(1, std::string(function) + ": " + argument + " has " + std::to_string(size) + unit +
                     ", expected " + std::to_string(expected));
}

}  // namespace detail

/** Removes noise from one channel, frame by frame. */
class Cleaner {
 public:
  /** @throws Error when no loaded model fits or an option is out of range. */
  Cleaner(const Library& library, const CleanerOptions& options)
      : inputRate_(options.inputRate),
        outputRate_(options.outputRate != 0 ? options.outputRate : options.inputRate),
        frameMs_(options.frameMs),
        session_(library.context_,
                 Orv_Context_CreateCleaner(library.context_->handle(), inputRate_, outputRate_,
                                           frameMs_, detail::nameOrNull(options.model)),
                 Orv_NC_CloseSession, "Orv_Context_CreateCleaner") {
    session_.check(Orv_NC_GetLatency(session_.handle(), &latency_), "Orv_NC_GetLatency");
  }

  /**
   * Cleans one frame.
   *
   * @param input inputSize() samples, full scale +/-1.0; NaN and infinite samples count as 0.
   * @param output receives outputSize() samples in [-1, 32767/32768]; may be the input, must not
   *        overlap it otherwise.
   * @throws Error when a length does not fit.
   */
  void process(std::span<const float> input, std::span<float> output) {
    requireSizes(input.size(), output.size());
    session_.check(
        Orv_NC_CleanAmbientNoiseFloat(session_.handle(), input.data(), count(input.size()),
                                      output.data(), count(output.size())),
        "Orv_NC_CleanAmbientNoiseFloat");
  }
  /** The same for 16-bit samples. */
  void process(std::span<const std::int16_t> input, std::span<std::int16_t> output) {
    requireSizes(input.size(), output.size());
    session_.check(
        Orv_NC_CleanAmbientNoiseInt16(session_.handle(), input.data(), count(input.size()),
                                      output.data(), count(output.size())),
        "Orv_NC_CleanAmbientNoiseInt16");
  }

  /** From the next frame on no frequency bin is lowered by more than this.
   * @throws Error when the value (dB) is negative or not finite. */
  void setAttenuationLimit(float decibels) {
    session_.check(Orv_NC_SetAttenuationLimit(session_.handle(), decibels),
                   "Orv_NC_SetAttenuationLimit");
  }
  /** Forgets the audio so far; the attenuation limit stays. */
  void reset() { session_.check(Orv_NC_ResetSession(session_.handle()), "Orv_NC_ResetSession"); }

  int inputRate() const noexcept { return inputRate_; }
  int outputRate() const noexcept { return outputRate_; }
  int frameMs() const noexcept { return frameMs_; }
  /** Samples of one frame. */
  std::size_t inputSize() const noexcept { return samples(inputRate_); }
  std::size_t outputSize() const noexcept { return samples(outputRate_); }
  /** Samples at the output rate by which the output lags behind the input. */
  std::size_t latency() const noexcept { return latency_; }
  /** May be called from any thread. */
  Statistics statistics() const { return session_.statistics(); }
  /** For the Orv_NC functions. */
  void* handle() const noexcept { return session_.handle(); }

 private:
  template <class Sample>
  friend class CleanerBatch;

  static std::uint32_t count(std::size_t size) noexcept { return static_cast<std::uint32_t>(size); }
  std::size_t samples(int rate) const noexcept {
    return static_cast<std::size_t>(rate) * static_cast<std::size_t>(frameMs_) / 1000;
  }
  void requireSizes(std::size_t input, std::size_t output) const {
    detail::requireSize("Cleaner::process", "input", input, inputSize());
    detail::requireSize("Cleaner::process", "output", output, outputSize());
  }

  int inputRate_;
  int outputRate_;
  int frameMs_;
  std::uint32_t latency_ = 0;
  detail::Session session_;
};

/**
 * Frames of several Cleaners that are cleaned in one call: those of one model then share the reading of its
 * weights. The outputs are those of Cleaner::process but for the rounding of floats.
 */
template <class Sample>
class CleanerBatch {
 public:
  /** Makes room for as many frames: adding and processing them allocates nothing then. */
  void reserve(std::size_t frames) {
    const auto grow = [=](auto&... arrays) { (arrays.reserve(frames), ...); };
    grow(cleaners_, handles_, inputs_, inputCounts_, outputs_, outputCounts_, statuses_);
  }

  /**
   * Adds a frame, which is cleaned by process().
   *
   * @param cleaner none that has been added already; must not be moved or destroyed before process().
   * @param input,output as for Cleaner::process.
   * @throws Error when a length does not fit.
   */
  void add(const Cleaner& cleaner, std::span<const Sample> input, std::span<Sample> output) {
    detail::requireSize("CleanerBatch::add", "input", input.size(), cleaner.inputSize());
    detail::requireSize("CleanerBatch::add", "output", output.size(), cleaner.outputSize());
    if (cleaners_.size() == cleaners_.capacity()) reserve(2 * cleaners_.size() + 1);
    cleaners_.push_back(&cleaner);
    handles_.push_back(cleaner.handle());
    inputs_.push_back(input.data());
    inputCounts_.push_back(static_cast<std::uint32_t>(input.size()));
    outputs_.push_back(output.data());
    outputCounts_.push_back(static_cast<std::uint32_t>(output.size()));
    statuses_.push_back(0);
  }

  bool empty() const noexcept { return cleaners_.empty(); }

  /** Cleans the frames that were added; the batch is empty afterwards.
   * @throws Error for the first frame that fails; the others are cleaned all the same. */
  void process() {
    const auto count = static_cast<std::uint32_t>(cleaners_.size());
    const int status = clean(count);
    const auto failed =
        std::find_if(statuses_.begin(), statuses_.end(), [](int each) { return each != 0; });
    const Cleaner* cleaner =
        status == 0 ? nullptr : cleaners_[static_cast<std::size_t>(failed - statuses_.begin())];
    const auto clear = [](auto&... arrays) { (arrays.clear(), ...); };
    clear(cleaners_, handles_, inputs_, inputCounts_, outputs_, outputCounts_, statuses_);
    if (cleaner != nullptr) cleaner->session_.check(status, "CleanerBatch::process");
  }

 private:
  int clean(std::uint32_t count) {
    if constexpr (std::is_same_v<Sample, float>) {
      return Orv_NC_CleanBatchFloat(count, handles_.data(), inputs_.data(), inputCounts_.data(),
                                    outputs_.data(), outputCounts_.data(), statuses_.data());
    } else {
      return Orv_NC_CleanBatchInt16(count, handles_.data(), inputs_.data(), inputCounts_.data(),
                                    outputs_.data(), outputCounts_.data(), statuses_.data());
    }
  }

  std::vector<const Cleaner*> cleaners_;
  std::vector<void*> handles_;
  std::vector<const Sample*> inputs_;
  std::vector<std::uint32_t> inputCounts_;
  std::vector<Sample*> outputs_;
  std::vector<std::uint32_t> outputCounts_;
  std::vector<int> statuses_;
};

/** Scores voice activity in one channel, frame by frame. */
class Detector {
 public:
  /** Scores lag behind their audio by this: the score of a frame of 10 ms tells about the frame before
   * the last one. Conversion to the model's rate adds about 3 ms. */
  static constexpr int kLagMs = 20;

  /** @throws Error when no loaded model fits or an option is out of range. */
  Detector(const Library& library, const DetectorOptions& options)
      : rate_(options.rate),
        frameMs_(options.frameMs),
        session_(library.context_,
                 Orv_Context_CreateDetector(library.context_->handle(), rate_, frameMs_,
                                            detail::nameOrNull(options.model)),
                 Orv_VAD_CloseSession, "Orv_Context_CreateDetector") {}

  /**
   * Scores one frame.
   *
   * @param input frameSize() samples, full scale +/-1.0; NaN and infinite samples count as 0.
   * @return for a calibrated model in [0.00001, 0.99999], with 0.5 at its best operating point;
   *         otherwise the raw output of the network.
   * @throws Error when the length does not fit.
   */
  float process(std::span<const float> input) {
    float score = 0.0F;
    detail::requireSize("Detector::process", "input", input.size(), frameSize());
    session_.check(Orv_VAD_ProcessFloat(session_.handle(), input.data(),
                                        static_cast<std::uint32_t>(input.size()), &score),
                   "Orv_VAD_ProcessFloat");
    return score;
  }
  /** The same for 16-bit samples. */
  float process(std::span<const std::int16_t> input) {
    float score = 0.0F;
    detail::requireSize("Detector::process", "input", input.size(), frameSize());
    session_.check(Orv_VAD_ProcessInt16(session_.handle(), input.data(),
                                        static_cast<std::uint32_t>(input.size()), &score),
                   "Orv_VAD_ProcessInt16");
    return score;
  }

  /** Forgets the audio so far. */
  void reset() { session_.check(Orv_VAD_ResetSession(session_.handle()), "Orv_VAD_ResetSession"); }

  int rate() const noexcept { return rate_; }
  int frameMs() const noexcept { return frameMs_; }
  /** Samples of one frame. */
  std::size_t frameSize() const noexcept {
    return static_cast<std::size_t>(rate_) * static_cast<std::size_t>(frameMs_) / 1000;
  }
  /** May be called from any thread. */
  Statistics statistics() const { return session_.statistics(); }
  /** For the Orv_VAD functions. */
  void* handle() const noexcept { return session_.handle(); }

 private:
  int rate_;
  int frameMs_;
  detail::Session session_;
};

}  // namespace orvel

#endif  // ORVEL_ORVEL_SESSION_HPP
