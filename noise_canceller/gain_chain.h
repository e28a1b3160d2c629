#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "noise_canceller/frame_parameters.h"
#include "noise_canceller/gain_settings.h"
#include "utils/en_threshold.h"

namespace ORVEL::NOISE_CANCELLER {

/** How the gains below the RM threshold T are scaled; the two differ in the last bit only. */
enum class RmThresholdOrder {
  /** g * (1 / T) * g */
  kGainFirst,
  /** (1 / T) * g * g */
  kReciprocalFirst,
};

/**
 * Shapes a hop's gains: squaring or soft modification, high-frequency squaring, smoothing over time, RM
 * threshold, threshold cut. Allocates nothing after construction.
 */
class GainChain {
 public:
  GainChain(const GainSettings& settings, RmThresholdOrder order, const FrameParameters& frame);

  /** Shows the hop's windowed frame to the energy gate, where there is one. */
  void measure(const float* windowedFrame);

  /** Where the network's mask goes: the band, inside gains that are zero outside it. */
  float* band();

  /** Shapes the gains; the result is also what the next hop is smoothed against. */
  const std::vector<float>& shape();

 private:
  void square();
  void modifySoftly();
  void applyRmThreshold();

  GainSettings settings_;
  RmThresholdOrder order_;
  std::size_t bandBegin_;
  std::size_t frameLength_;
  std::vector<float> incoming_;
  std::vector<float> stored_;
  std::optional<UTILS::EnThreshold> gate_;
};

}  // namespace ORVEL::NOISE_CANCELLER
