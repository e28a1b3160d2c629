#pragma once

#include "noise_canceller/spectral_features.h"
#include "noise_canceller/tuning_keys.h"

/**
 * Settings of the gain chain and how each is read from the tuning keys. A value out of its range gives
 * a warning on standard output and falls back to the default. Every version reads them in its own
 * order, which is the order of the warnings.
 */
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

struct ClipFixSettings {
  bool enabled = false;
  float point = 25000.0F;
};

/** How a version takes its numbers. */
enum class NumberStyle {
  /** Whole numbers; dependent values are read only when their stage is on; an RM threshold of 0 is bad. */
  kWhole,
  /** Real numbers; the clip point is always read; an RM threshold of 0 is accepted. */
  kReal,
};

/** Smoothing coefficient, soft modification and high-frequency squaring. */
void readSmoothing(const TuningKeys& keys, GainSettings& settings);
void readClipFix(const TuningKeys& keys, NumberStyle style, ClipFixSettings& settings);
/** Threshold cut, then RM threshold. */
void readThresholds(const TuningKeys& keys, NumberStyle style, GainSettings& settings);
/** The references are read only when the RM threshold is on. */
void readRescale(const TuningKeys& keys, bool rmThreshold, RescaleSettings& settings);

}  // namespace ORVEL::NOISE_CANCELLER
