#include "noise_canceller/gain_settings.h"

#include "utils/diagnostics.h"

namespace ORVEL::NOISE_CANCELLER {

namespace {

constexpr const char* kSmoothingWarning =
    "WARNING OF SMOOTH COEF NUMBER VALUE. IT MUST BE iIN INTERVALK (0,1] \n DEFAULT VALUE 1.f";
constexpr const char* kClipPointWarning =
    "WARNING OF CLIP_FIX_POINT NUMBER VALUE. IT MUST BE IN INTERVALK (1,32768) \n DEFAULT VALUE "
    "25000";
constexpr const char* kThresholdCutWarning =
    "WARNING OF THRESH_CUT_REF VALUE. IT MUST BE iIN INTERVALK [1,1000] \n DEFAULT VALUE 100";
constexpr const char* kRmThresholdWarning =
    "WARNING OF RM_THRESHOLD VALUE. IT MUST BE iIN INTERVALK [0.0,1.0] \n DEFAULT VALUE 0.5";

void require(bool inRange, const char* warning, float& value, float fallback) {
  if (!inRange) {
    UTILS::printText(warning);
    value = fallback;
  }
}

void readNumber(const TuningKeys& keys, NumberStyle style, const char* stem, float& value) {
  if (style == NumberStyle::kWhole) {
    keys.readWhole(stem, value);
  } else {
    keys.readReal(stem, value);
  }
}

}  // namespace

void readSmoothing(const TuningKeys& keys, GainSettings& settings) {
  float& c = settings.smoothing;
  keys.readReal("ORVEL_SMOOT_COEF", c);
  require(c > 0.0F && c <= 1.0F, kSmoothingWarning, c, GainSettings{}.smoothing);
  keys.readSwitch("ORVEL_SMOOT_RM_MODIFY", settings.softModification);
  keys.readSwitch("ORVEL_HIGH_FREQ_SMOOT", settings.squareHighFrequencies);
}

void readClipFix(const TuningKeys& keys, NumberStyle style, ClipFixSettings& settings) {
  keys.readSwitch("ORVEL_ENABLE_CLIP_FIX", settings.enabled);
  if (style == NumberStyle::kWhole && !settings.enabled) {
    return;
  }
  float& point = settings.point;
  readNumber(keys, style, "ORVEL_CLIP_FIX_POINT", point);
  require(point >= 1.0F && point <= 32768.0F, kClipPointWarning, point, ClipFixSettings{}.point);
}

void readThresholds(const TuningKeys& keys, NumberStyle style, GainSettings& settings) {
  keys.readSwitch("ORVEL_ENABLE_THRESH_CUT", settings.thresholdCut);
  if (settings.thresholdCut) {
    float& reference = settings.thresholdCutReference;
    readNumber(keys, style, "ORVEL_THRESH_CUT_REF_EN", reference);
    require(reference >= 1.0F && reference <= 1000.0F, kThresholdCutWarning, reference,
            GainSettings{}.thresholdCutReference);
  }
  keys.readSwitch("ORVEL_ENABLE_RM_THRESHOLD", settings.rmThreshold);
  if (settings.rmThreshold) {
    float& threshold = settings.rmThresholdValue;
    keys.readReal("ORVEL_RM_THRESHOLD", threshold);
    const bool aboveLeast = style == NumberStyle::kReal ? threshold >= 0.0F : threshold > 0.0F;
    require(aboveLeast && threshold <= 1.0F, kRmThresholdWarning, threshold,
            GainSettings{}.rmThresholdValue);
  }
}

void readRescale(const TuningKeys& keys, bool rmThreshold, RescaleSettings& settings) {
  keys.readSwitch("ORVEL_ENABLE_RESCALE", settings.enabled);
  if (rmThreshold) {
    keys.readReal("ORVEL_RESCALE_REF_AMPL", settings.referenceAmplitude);
    keys.readReal("ORVEL_RESCALE_REF_EN", settings.referenceEnergy);
  }
}

}  // namespace ORVEL::NOISE_CANCELLER
