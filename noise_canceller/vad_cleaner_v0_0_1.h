#pragma once

#include <array>
#include <complex>
#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

#include "noise_canceller/gain_tracker.h"
#include "noise_canceller/generated_objects.h"
#include "noise_canceller/noise_cleaner.h"
#include "noise_canceller/recurrent_network.h"
#include "noise_canceller/score_calibration.h"
#include "noise_canceller/state_reset.h"
#include "noise_canceller/vad_features.h"
#include "utils/sliding_buffer.h"

namespace ORVEL::NOISE_CANCELLER {

/**
 * Voice-activity detector: leaves the audio alone and gives one score per buffer of 10 ms. Gain to a
 * reference level, log band energies of the last 30 ms, recurrent network over four frames of them,
 * calibrated score.
 */
class VadCleaner_v0_0_1 final : public NoiseCleaner {
 public:
  /** @throws ORVEL_Exception when weights are missing or do not fit together. */
  VadCleaner_v0_0_1(WEIGHTS::Model& model, int sessionFrameMs);

  /** Replaces the buffer by its score; gives 1. */
  int process(std::vector<float>& samples) override;

 private:
  void readStatistics(const WEIGHTS::Weight& weight);
  void shiftIn(const std::vector<float>& samples, float gain);
  float evaluateHop();
  void appendNormalised(const std::array<float, kVadFeatures>& features);

  std::vector<float> means_;
  std::vector<float> deviations_;
  ScoreCalibration calibration_;
  std::unique_ptr<RecurrentNetwork> network_;
  std::optional<StateReset> stateReset_;
  SharedWindow window_;
  std::shared_ptr<UTILS::FFT> fft_;
  GainTracker gain_;
  std::vector<float> buffer_;
  std::vector<float> windowed_;
  std::vector<std::complex<float>> spectrum_;
  UTILS::SlidingBuffer history_;
  std::vector<float> output_;
};

}  // namespace ORVEL::NOISE_CANCELLER
