#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "noise_canceller/weight_parameters.h"
#include "utils/energy_trackers.h"

namespace ORVEL::NOISE_CANCELLER {

struct GainSettings {
  /** Weight of the new gains against the previous ones; 1 switches the smoothing off. */
  float smoothing = 1.0F;
  bool softModification = false;
  bool squareHighFrequencies = false;
  bool thresholdCut = false;
  float thresholdCutReference = 100.0F;
  bool rmThreshold = false;
  float rmThresholdValue = 0.5F;
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

  /** Forgets the gains and the level of the hops so far. */
  void reset();

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
