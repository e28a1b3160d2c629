#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

#include "noise_canceller/band_compression.h"
#include "noise_canceller/frame_parameters.h"
#include "noise_canceller/gain_chain.h"
#include "noise_canceller/network.h"
#include "noise_canceller/network_input.h"
#include "noise_canceller/noise_average.h"
#include "noise_canceller/overlap_add.h"
#include "noise_canceller/spectral_features.h"
#include "noise_canceller/synthesis.h"

namespace ORVEL::NOISE_CANCELLER {

/** The exchangeable stages of a masking cleaner; each version fills in its own. */
struct MaskingStages {
  FrameParameters frame;
  std::shared_ptr<UTILS::FFT> fft;
  SharedWindow analysisWindow;
  std::unique_ptr<SpectralFeatures> features;
  NetworkInput input;
  /** Gives the network a running average of the noise behind its history. */
  std::optional<NoiseAverage> noiseAverage;
  std::unique_ptr<Network> network;
  /** Spreads the network's mask over the band's bins; empty where it has a value per bin already. */
  std::shared_ptr<const BandCompression> expansion;
  GainChain gains;
  /** Masks the spectrum of the frame before the analysis window instead of that after it. */
  bool masksUnwindowedFrame = false;
  Synthesis synthesis;
};

/**
 * Short-time spectral masking: frame, window, transform, features, network, gains, masked spectrum,
 * overlap-add. Allocates nothing after construction.
 */
class MaskingPipeline {
 public:
  /** @throws ORVEL_Exception when stages do not fit together. */
  MaskingPipeline(MaskingStages stages, int sessionFrameMs);

  /** Replaces the new samples by the output of this call; 1, or -1 when a frame failed. */
  int process(std::vector<float>& samples);

  std::size_t delay() const { return overlapAdd_.delay(); }
  void setGainFloor(float gain) { stages_.synthesis.setGainFloor(gain); }

 private:
  const float* processHop(const float* frame);
  void estimateMask(const float* frame);

  MaskingStages stages_;
  OverlapAdd overlapAdd_;
  std::vector<float> windowed_;
  Spectrum spectrum_;
  Spectrum unwindowedSpectrum_;
  std::vector<float> mask_;
};

}  // namespace ORVEL::NOISE_CANCELLER
