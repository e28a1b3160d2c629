/*
 * ORVEL extensions: voice-activity scores, latency, attenuation limit. Conventions, status codes and
 * thread rules are those of orv_sdk.h; all four functions are real-time safe when they succeed.
 */
#ifndef ORVEL_ORV_SDK_EXT_H
#define ORVEL_ORV_SDK_EXT_H

#include "orvel/orv_sdk.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Scores one frame of 16-bit samples.
 *
 * @param session handle of a voice-activity session.
 * @param input inputCount samples at the session's rate.
 * @param inputCount sampleRate * frameDurationMs / 1000.
 * @param score receives one value: for a calibrated model in [0.00001, 0.99999] with 0.5 at the
 *        model's best operating point, otherwise the raw output of the network.
 * @return 0; 1 when the count or a pointer is wrong (the stream is unchanged); 2 when the handle is
 *         not that of an open voice-activity session; -3 when not initialised.
 */
ORV_API int Orv_VAD_ProcessInt16(void* session, const int16_t* input, uint32_t inputCount,
                                 float* score);

/** Scores one frame of floats, full scale +/-1.0; otherwise as Orv_VAD_ProcessInt16. */
ORV_API int Orv_VAD_ProcessFloat(void* session, const float* input, uint32_t inputCount,
                                 float* score);

/**
 * Tells by how many output samples a session's output lags behind its input: both sample-rate
 * conversions and the cleaner together. Constant for the life of a session.
 *
 * @param outputSamples receives the latency in samples at the output rate.
 * @return 0; 1 when outputSamples is NULL; 2 when the handle is not that of an open noise-cleaning
 *         session; -3 when not initialised.
 */
ORV_API int Orv_NC_GetLatency(void* session, uint32_t* outputSamples);

/**
 * Limits the attenuation: from the next frame on no frequency bin is lowered by more than this. By
 * default there is no limit.
 *
 * @param decibels finite and not negative; 0 leaves every bin as it is.
 * @return 0; 1 when the value is negative or not finite (nothing changes); 2 when the handle is not
 *         that of an open noise-cleaning session; -3 when not initialised.
 */
ORV_API int Orv_NC_SetAttenuationLimit(void* session, float decibels);

#ifdef __cplusplus
}
#endif

#endif /* ORVEL_ORV_SDK_EXT_H */
