#pragma once

#include <cstddef>
#include <vector>

#include "noise_canceller/spectral_features.h"

namespace ORVEL::NOISE_CANCELLER {

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

  std::size_t size() const { return sum_.size(); }
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
