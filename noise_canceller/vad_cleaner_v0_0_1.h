#pragma once

#include <array>
#include <complex>
#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

#include "noise_canceller/network.h"
#include "noise_canceller/noise_cleaner.h"
#include "noise_canceller/shared_transforms.h"
#include "noise_canceller/vad_features.h"
#include "utils/sliding_buffer.h"

namespace ORVEL::NOISE_CANCELLER {

/**
 * Maps the network's raw output to a score: the model's low, best and high points become 0, 0.5 and 1,
 * linearly in between, kept within [0.00001, 0.99999]. Without all three points the raw output is the
 * score.
 */
class ScoreCalibration {
 public:
  explicit ScoreCalibration(const WEIGHTS::Weight& weight);
  float score(float raw) const;

 private:
  bool calibrated_ = false;
  float low_ = 0.0F;
  float best_ = 0.0F;
  float high_ = 0.0F;
};

/** Watches for a long time without voice, after which the detector's state may be cleared. */
class StateReset {
 public:
  StateReset();

  /** Takes the network's raw output of a hop; true when the state is to be cleared now. */
  bool update(float rawOutput);
  /** Forgets what it has seen. */
  void clear();

 private:
  std::vector<unsigned char> ring_;
  std::size_t position_ = 0;
  std::size_t filled_ = 0;
  int count_ = 0;
  int hopsSinceReset_ = 0;
};

/**
 * Voice-activity detector: leaves the audio alone and gives one score per buffer of 10 ms. Gain to a
 * reference level, log band energies of the last 30 ms, recurrent network over four frames of them,
 * calibrated score.
 */
class VadCleaner_v0_0_1 final : public NoiseCleaner {
 public:
  /** @throws ORVEL_Exception when weights are missing or do not fit together. */
  VadCleaner_v0_0_1(const WEIGHTS::Model& model, const CleanerTraits& version, int sessionFrameMs);

  void begin(const std::vector<float>& samples) override;
  std::optional<Network::Task> prepareHop() override;
  void finishHop() override;
  void reset() override;

 private:
  /** Replaces the buffer by its score. */
  int deliver(std::vector<float>& samples) override;
  bool isFinite() const override { return network_.isFinite(); }
  void readStatistics(const WEIGHTS::Weight& weight);
  void shiftIn(const std::vector<float>& samples, float gain);
  void fillHistory();
  void appendNormalised(const std::array<float, kVadFeatures>& features);

  std::vector<float> means_;
  std::vector<float> deviations_;
  ScoreCalibration calibration_;
  Network network_;
  std::optional<StateReset> stateReset_;
  SharedWindow window_;
  std::shared_ptr<UTILS::FFT> fft_;
  AutomaticGain gain_;
  std::vector<float> buffer_;
  std::vector<float> windowed_;
  std::vector<std::complex<float>> spectrum_;
  UTILS::SlidingBuffer history_;
  /** The raw score. */
  std::vector<float> output_;
  /** Whether the call's one hop is still to come, and whether it could be transformed. */
  bool due_ = false;
  bool analysed_ = false;
};

}  // namespace ORVEL::NOISE_CANCELLER
