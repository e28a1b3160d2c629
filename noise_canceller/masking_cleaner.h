#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

#include "noise_canceller/gain_chain.h"
#include "noise_canceller/network.h"
#include "noise_canceller/network_input.h"
#include "noise_canceller/noise_cleaner.h"
#include "noise_canceller/overlap_add.h"
#include "noise_canceller/spectral_features.h"
#include "noise_canceller/synthesis.h"

namespace ORVEL::NOISE_CANCELLER {

/**
 * A noise cleaner of any version: short-time spectral masking with the stages that the version's traits
 * and the model's tuning keys choose.
 */
class MaskingCleaner final : public NoiseCleaner {
 public:
  /**
   * Reads the model's weights and tuning keys in the version's order, which is that of the warnings.
   *
   * @throws ORVEL_Exception when weights are missing or do not fit together.
   */
  MaskingCleaner(const WEIGHTS::Model& model, const CleanerTraits& version, int sessionFrameMs);

  void begin(const std::vector<float>& samples) override;
  std::optional<Network::Task> prepareHop() override;
  void finishHop() override;
  void reset() override;
  std::size_t delay() const override { return overlapAdd_.delay(); }
  void setGainFloor(float gain) override { stages_.synthesis.setGainFloor(gain); }

 private:
  int deliver(std::vector<float>& samples) override;
  bool isFinite() const override { return stages_.network.isFinite(); }

  struct Stages {
    FrameParameters frame;
    std::shared_ptr<UTILS::FFT> fft;
    SharedWindow analysisWindow;
    SpectralFeatures features;
    NetworkInput input;
    /** Gives the network a running average of the noise behind its history. */
    std::optional<NoiseAverage> noiseAverage;
    Network network;
    /** Spreads the network's mask over the band's bins; empty where it has a value per bin already. */
    std::shared_ptr<const BandCompression> expansion;
    GainChain gains;
    Synthesis synthesis;
    /** Masks the spectrum of the frame before the analysis window instead of that after it. */
    bool masksUnwindowedFrame;
    /** Leaves the network out while a call's samples are all zero. */
    bool skipsSilence;
  };

  MaskingCleaner(const WEIGHTS::Model& model, Stages stages, int sessionFrameMs);
  static Stages makeStages(const WEIGHTS::Model& model, const CleanerTraits& version);

  bool analyse(const float* frame);
  const float* synthesise(const float* frame);

  Stages stages_;
  OverlapAdd overlapAdd_;
  std::vector<float> windowed_;
  Spectrum spectrum_;
  Spectrum unwindowedSpectrum_;
  std::vector<float> mask_;
  /** Whether the samples of the current call are digital silence that is skipped. */
  bool skipping_ = false;
  /** Whether the current hop could be transformed. */
  bool analysed_ = false;
  /** Whether every hop of the current call could be. */
  bool succeeded_ = true;
};

}  // namespace ORVEL::NOISE_CANCELLER
