#pragma once

#include <cstddef>

#include "noise_canceller/weight_reader.h"

namespace ORVEL::NOISE_CANCELLER {

/** Framing and band of a noise cleaner, as its weight set gives them; checked against each other. */
struct FrameParameters {
  std::size_t sampleRate;
  /** Samples of one analysis frame: two hops, 30 or 32 ms. */
  std::size_t frameLength;
  /** Samples of one hop. */
  std::size_t step;
  /** First bin of the band that the network sees, and one past its last. */
  std::size_t bandBegin;
  std::size_t bandEnd;
  /** Frames in the network's history input, the current one included. */
  std::size_t previewFrames;
  /** Bins of a frame's spectrum. */
  std::size_t coefficientNumber;

  std::size_t bandWidth() const { return bandEnd - bandBegin; }
  std::size_t frameDurationMs() const { return frameLength * 1000 / sampleRate; }

  /** @throws ORVEL_Exception for a missing parameter, or for the first two that do not fit. */
  static FrameParameters read(const WeightReader& weights);
};

}  // namespace ORVEL::NOISE_CANCELLER
