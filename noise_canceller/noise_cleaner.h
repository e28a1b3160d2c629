#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "noise_canceller/cleaner_versions.h"
#include "noise_canceller/network.h"
#include "utils/non_copyable.h"
#include "weights/model_store.h"

namespace ORVEL::NOISE_CANCELLER {

/**
 * Turns a stream of mono samples at the model's rate, in 16-bit scale (full scale +/-32768), into a
 * stream of cleaned samples or of scores. Used by one thread at a time; `process` allocates nothing.
 */
class NoiseCleaner : public UTILS::NonCopyMovable {
 public:
  explicit NoiseCleaner(std::shared_ptr<const WEIGHTS::Weight> weight)
      : weight_(std::move(weight)) {}
  virtual ~NoiseCleaner();

  /**
   * Takes the new samples and replaces them by the output of this call: as many samples as one frame
   * of the session has, or one score.
   *
   * A state that is no longer finite, which would never heal, is noticed in the call that makes it so: the
   * cleaner is reset, and the call gives zeros.
   *
   * @return 1, or -1 when a frame could not be processed.
   */
  int process(std::vector<float>& samples) {
    begin(samples);
    processHops();
    return end(samples);
  }

  // The parts of `process`, for cleaners whose hops are processed together: begin, then prepareHop and
  // finishHop until no hop is due, then end.

  /** Takes the new samples. */
  virtual void begin(const std::vector<float>& samples) = 0;

  /** Computes the next hop as far as its network, which is to be evaluated; nothing when none is due. */
  virtual std::optional<Network::Task> prepareHop() = 0;
  virtual void finishHop() = 0;

  /** All hops that are due, by themselves. */
  void processHops();

  /** Replaces the samples by the output; gives what `process` gives. */
  int end(std::vector<float>& samples);

  /** Counted since construction; read from any thread. */
  struct Counts {
    std::uint64_t calls;
    std::uint64_t failures;
    std::uint64_t resets;
  };
  Counts counts() const { return {calls_, failures_, resets_}; }

  /**
   * Puts the cleaner back to the state it was created in, bit for bit: nothing of the stream so far is
   * remembered. The gain floor stays as it was set. Allocates nothing, takes no lock.
   */
  virtual void reset() = 0;

  /** Samples by which the output lags behind the input, at the model's rate. */
  virtual std::size_t delay() const { return 0; }

  /** From the next hop on no bin's gain is below this (0: no limit). Cleaners without gains ignore it. */
  virtual void setGainFloor(float /*gain*/) {}

  const WEIGHTS::Weight& weight() const { return *weight_; }

 protected:
  /** What `end` gives. */
  virtual int deliver(std::vector<float>& samples) = 0;

  /** False when the state that is carried to the next call holds an infinite number or NaN. */
  virtual bool isFinite() const = 0;

 private:
  std::atomic<std::uint64_t> calls_{0};
  std::atomic<std::uint64_t> failures_{0};
  std::atomic<std::uint64_t> resets_{0};
  std::shared_ptr<const WEIGHTS::Weight> weight_;
};

/**
 * Builds the cleaner of a model.
 *
 * @param modelName a registered name, taken whatever its kind and rate are; or NULL for the model of
 *        that kind whose rate is nearest to inputRate without being above it (the first on a tie).
 * @throws ORVEL_Exception when there is no such model, its version is unknown, or its weights are
 *         incomplete or do not fit together.
 */
std::shared_ptr<NoiseCleaner> create(const WEIGHTS::ModelStore& store, std::uint32_t inputRate,
                                     int frameDurationMs, const char* modelName, SessionKind kind);

}  // namespace ORVEL::NOISE_CANCELLER
