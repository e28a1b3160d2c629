#pragma once

#include <array>
#include <complex>
#include <cstddef>
#include <memory>
#include <vector>

#include "utils/fft.h"

namespace ORVEL::PLUGINS {

/**
 * One gain for both sides of a stereo signal, so that no source moves between them.
 *
 * Both sides are cleaned on their own; this takes, in every band and hop of a short-time spectrum, the mean of
 * the gains that the two sides were given, weighted by their power, and applies it to the uncleaned sides.
 * A gain from the sum of the sides would need the network once only, but whatever lies out of phase is
 * absent from the sum, and what lies on one side is half of it there.
 */
class LinkedGain {
 public:
  static constexpr std::size_t kSides = 2;

  /** @throws ORVEL_Exception when the transform cannot be prepared. */
  explicit LinkedGain(int rate);

  /** Samples by which the output lags behind what process() is given: 8 to 12 ms. */
  std::size_t latency() const noexcept { return frame_; }

  /**
   * @param plain the uncleaned sides, in time with the cleaned ones.
   * @param cleaned replaced by the plain sides with the common gain.
   *
   * Real-time safe.
   */
  void process(const std::array<const float*, kSides>& plain,
               const std::array<float*, kSides>& cleaned, std::size_t count) noexcept;
  void reset() noexcept;

 private:
  struct Side {
    std::vector<float> plain, cleaned;  // the latest frame
    std::vector<float> sum;             // overlap-add
    std::vector<float> ready;           // one hop of output
    std::vector<std::complex<float>> plainBins, cleanedBins;
  };
  void completeHop() noexcept;
  void transform(const std::vector<float>& frame, std::vector<std::complex<float>>& bins) noexcept;

  std::size_t frame_;
  std::size_t hop_;
  std::size_t position_ = 0;  // in the hop
  std::shared_ptr<UTILS::FFT> fft_;
  std::vector<float> window_;
  std::vector<float> work_;
  std::array<Side, kSides> sides_;
};

}  // namespace ORVEL::PLUGINS
