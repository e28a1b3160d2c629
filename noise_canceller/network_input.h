#pragma once

#include <cstddef>
#include <vector>

#include "noise_canceller/spectral_features.h"
#include "utils/sliding_buffer.h"

namespace ORVEL::NOISE_CANCELLER {

/**
 * The network's input: the features of the last frames, oldest first, and what a cleaner appends to
 * them, normalised as (value - mean) / deviation. Allocates nothing after construction.
 */
class NetworkInput {
 public:
  enum class Statistics {
    /** "MU" and "SD" have a value per input. */
    kPerInput,
    /** "MU" and "SD" are shorter and repeat. */
    kRepeating,
  };

  /**
   * @param features values per frame; the history starts with zeros.
   * @param frames frames in the history, the current one included.
   * @param appended values behind the history, for example a noise average.
   * @throws ORVEL_Exception when the lengths of means and deviations do not fit.
   */
  NetworkInput(std::size_t features, std::size_t frames, std::size_t appended,
               const std::vector<float>& means, const std::vector<float>& deviations,
               Statistics statistics);

  std::size_t size() const { return input_.size(); }

  /** Room for the current frame's features, to be written before `normalised` is called. */
  float* nextFrame();

  /** Forgets all frames. */
  void reset();

  /** The normalised input; `appended` holds as many values as the constructor was told. */
  const float* normalised(const float* appended);

 private:
  std::size_t features_;
  std::size_t historyLength_;
  std::vector<float> means_;
  std::vector<float> deviations_;
  std::vector<float> input_;
  UTILS::SlidingBuffer history_;
};

/**
 * Mean over the last frames of ln(|X (1 - g)| + 1): the log magnitude of what the gains removed in each
 * bin of the band. Starts at zero.
 */
class NoiseAverage {
 public:
  /** @throws ORVEL_Exception when the record would be out of all proportion. */
  NoiseAverage(const FrameParameters& frame, std::size_t frameCount);

  /** Takes the spectrum and the gains of the frame, each with a value per bin. */
  void update(const Spectrum& spectrum, const std::vector<float>& gains);

  /** Forgets all frames. */
  void reset();

  const float* values() const { return sum_.data(); }

 private:
  std::size_t begin_;
  std::size_t frameCount_;
  std::size_t oldest_ = 0;
  std::vector<float> sum_;
  std::vector<float> removed_;
  std::vector<float> frames_;
};

}  // namespace ORVEL::NOISE_CANCELLER
