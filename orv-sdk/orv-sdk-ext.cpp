#include <cmath>

#include "orv-sdk/session_access.h"
#include "orvel/orv_sdk_ext.h"

using namespace ORVEL;

int Orv_VAD_ProcessInt16(void* session, const int16_t* input, uint32_t inputCount, float* score) {
  return withSession(session, SessionKind::kVoiceActivity, [&](OrvSessionT& open) -> int {
    return open.scoreInt16(input, inputCount, score) ? kSuccess : kRejected;
  });
}

int Orv_VAD_ProcessFloat(void* session, const float* input, uint32_t inputCount, float* score) {
  return withSession(session, SessionKind::kVoiceActivity, [&](OrvSessionT& open) -> int {
    return open.scoreFloat(input, inputCount, score) ? kSuccess : kRejected;
  });
}

int Orv_NC_GetLatency(void* session, uint32_t* outputSamples) {
  return withSession(session, SessionKind::kNoiseCleaning, [&](const OrvSessionT& open) -> int {
    if (outputSamples == nullptr) {
      return kRejected;
    }
    *outputSamples = open.latency();
    return kSuccess;
  });
}

int Orv_NC_SetAttenuationLimit(void* session, float decibels) {
  return withSession(session, SessionKind::kNoiseCleaning, [&](OrvSessionT& open) -> int {
    if (!std::isfinite(decibels) || decibels < 0.0F) {
      return kRejected;
    }
    open.setGainFloor(std::pow(10.0F, -decibels / 20.0F));
    return kSuccess;
  });
}
