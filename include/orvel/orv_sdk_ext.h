/*
 * ORVEL extensions: contexts, voice-activity scores, batches of sessions, latency, attenuation limit,
 * reset.
 *
 * Conventions, status codes and thread rules are those of orv_sdk.h.
 *
 * Contexts: the functions of orv_sdk.h work on one instance a process, print on the standard streams
 * and cannot be used by two parts of a program at once. A context is an instance of its own: its
 * models, model names and sessions are seen by nobody else, and it never prints. There may be any
 * number of contexts beside each other and beside the global instance, which need not be initialised
 * for them. A context's sessions are used with the functions that exist for all sessions
 * (Orv_NC_CleanAmbientNoise*, Orv_VAD_Process*, Orv_NC_GetLatency, Orv_NC_CloseSession, ...).
 * Contexts that load the same weight file share its memory, also with the global instance.
 *
 * Threads: the functions of a context may be called from any thread, also at the same time; only
 * Orv_Context_Destroy must be the last call on a context and on its sessions.
 *
 * Real time: Orv_VAD_Process*, Orv_NC_CleanBatch*, Orv_NC_GetLatency, Orv_NC_SetAttenuationLimit,
 * Orv_Session_GetStatistics and the two reset functions allocate no memory and take no lock; they make
 * no system call but those that write the reason of a refused call. A call that is refused in a session
 * of a context writes and prints nothing and calls no handler. All Orv_Context functions may allocate,
 * lock and read files.
 *
 * Errors: a session handle that is unknown belongs to no context: the reason is written to standard
 * error, and while the global instance is not initialised the status is -3 where 2 is listed.
 */
#ifndef ORVEL_ORV_SDK_EXT_H
#define ORVEL_ORV_SDK_EXT_H

#include <stddef.h>

#include "orvel/orv_sdk.h"
#include "orvel/orv_version.h"

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
 *         not that of an open voice-activity session; -3 when the frame could not be processed: its
 *         score is 0 then.
 */
ORV_API int Orv_VAD_ProcessInt16(void* session, const int16_t* input, uint32_t inputCount,
                                 float* score);

/** Scores one frame of floats, full scale +/-1.0; otherwise as Orv_VAD_ProcessInt16. */
ORV_API int Orv_VAD_ProcessFloat(void* session, const float* input, uint32_t inputCount,
                                 float* score);

/**
 * Cleans one frame of 16-bit samples of each of several noise-cleaning sessions. Sessions of one model
 * whose hops fall due together read the model's weights once instead of once each. Each output is that of
 * Orv_NC_CleanAmbientNoiseInt16 but for the rounding of floats: after the conversion to 16 bits, by one
 * step at most. The batch may hold any sessions: of different models, contexts, rates and frame durations.
 * What is wrong with one place of the arrays fails alone, with its own status.
 *
 * Real-time safe, whatever the count. Sessions of a batch must not be used by another thread until the
 * call returns; batches without a session in common may run at the same time. At most 64 neighbours in
 * the arrays share their reading, so that sessions of one model are best kept beside each other.
 *
 * @param count length of the arrays.
 * @param sessions handles; the second and later places of a session give status 1.
 * @param inputs frames: inputs[i] has inputCounts[i] samples at the input rate of sessions[i].
 * @param outputs outputs[i] receives outputCounts[i] samples; may be the same array as inputs[i], must
 *        overlap no other array.
 * @param statuses receives for each session what Orv_NC_CleanAmbientNoiseInt16 gives.
 * @return 0 when all statuses are; else the first one that is not. 1 when count is above 0 and one of the
 *         six arrays NULL: nothing is done then.
 */
ORV_API int Orv_NC_CleanBatchInt16(uint32_t count, void* const* sessions,
                                   const int16_t* const* inputs, const uint32_t* inputCounts,
                                   int16_t* const* outputs, const uint32_t* outputCounts,
                                   int* statuses);

/** The same for floats, as Orv_NC_CleanAmbientNoiseFloat takes and gives them. */
ORV_API int Orv_NC_CleanBatchFloat(uint32_t count, void* const* sessions,
                                   const float* const* inputs, const uint32_t* inputCounts,
                                   float* const* outputs, const uint32_t* outputCounts,
                                   int* statuses);

/**
 * Tells by how many output samples a session's output lags behind its input: both sample-rate
 * conversions and the cleaner together. Constant for the life of a session.
 *
 * @param outputSamples receives the latency in samples at the output rate.
 * @return 0; 1 when outputSamples is NULL; 2 when the handle is not that of an open noise-cleaning
 *         session.
 */
ORV_API int Orv_NC_GetLatency(void* session, uint32_t* outputSamples);

/**
 * Limits the attenuation: from the next frame on no frequency bin is lowered by more than this. By
 * default there is no limit.
 *
 * @param decibels finite and not negative; 0 leaves every bin as it is.
 * @return 0; 1 when the value is negative or not finite (nothing changes); 2 when the handle is not
 *         that of an open noise-cleaning session.
 */
ORV_API int Orv_NC_SetAttenuationLimit(void* session, float decibels);

/**
 * Puts a noise-cleaning session back to the state it was created in: nothing of the audio so far is
 * remembered, and what follows comes out bit for bit as from a new session. The attenuation limit stays
 * as it was set. Real-time safe; takes about as long as two frames.
 *
 * @return 0; 2 when the handle is not that of an open noise-cleaning session.
 */
ORV_API int Orv_NC_ResetSession(void* session);

/** The same for a voice-activity session. Real-time safe. */
ORV_API int Orv_VAD_ResetSession(void* session);

/** What a session has been through. Later versions add members at the end only. */
typedef struct OrvSessionStatistics { /* NOLINT(modernize-use-using): C */
  uint32_t size;                      /**< set by the caller: sizeof(OrvSessionStatistics) */
  uint32_t reserved;                  /**< 0 */
  uint64_t frames;                    /**< processed, those that failed included */
  uint64_t failedFrames;              /**< that the arithmetic could not process */
  uint64_t stateResets; /**< times the model's state became infinite or NaN and was cleared */
} OrvSessionStatistics;

/**
 * Tells what a session of either kind has counted since it was created; a reset does not clear it. A state
 * that is no longer finite would never heal: it is noticed in the frame in which it arises, that frame
 * gives silence or a score of 0, and the model begins as in a new session. Real-time safe; may be called
 * from any thread while the session is open.
 *
 * @param statistics receives the counts; its member size must be set. No more than that is written, and
 *        members that this version of the library does not know are left as they are.
 * @return 0; 1 when statistics is NULL or its size too small for size and frames; 2 when the handle is not
 *         that of an open session.
 */
ORV_API int Orv_Session_GetStatistics(void* session, OrvSessionStatistics* statistics);

/**
 * The version of the library that is running, as "1.0.0"; ORV_VERSION_STRING is that of the headers.
 * Real-time safe.
 */
ORV_API const char* Orv_SDK_GetVersion(void);

/** How grave a message is. */
enum OrvSeverity {
  ORV_SEVERITY_INFO = 0,    /**< what is being loaded */
  ORV_SEVERITY_WARNING = 1, /**< something was ignored or replaced by a default */
  ORV_SEVERITY_ERROR = 2    /**< why a call failed */
};

/** Receives a context's messages: `text` is one line without its end, valid until the handler returns. */
typedef void (*OrvMessageHandler)(void* user, int severity, /* NOLINT(modernize-use-using): C */
                                  const char* text);

/**
 * Creates a context.
 *
 * @param modelDirectory folder that relative paths of control files start from; NULL or "" for the
 *        current directory. Paths are those of the system; on POSIX a backslash also separates.
 * @return the context, owned by the caller until Orv_Context_Destroy; NULL when memory runs out.
 */
ORV_API void* Orv_Context_Create(const char* modelDirectory);

/**
 * Destroys a context with its models and every session still open; their handles are refused from then
 * on. Nothing else may use the context or its sessions meanwhile.
 *
 * @return 0, or 2 when it is not a context that exists.
 */
ORV_API int Orv_Context_Destroy(void* context);

/**
 * Loads a model into a context. Nothing is registered unless everything is whole: a control file or
 * weight file that is missing, damaged, truncated or of another kind is refused, as are weights that no
 * session could use. Values of tuning keys are checked when a session is created; what is out of range is
 * replaced by its default with a warning to the message handler.
 *
 * @param controlFileName path of the control file, relative to the context's model directory unless
 *        it is absolute. The weight file that it names is looked for beside the control file, then in
 *        the model directory; a name with ".." is refused. At most 1 MiB and 256 MiB are read. A line
 *        "#SHA256 HEX" in the control file is the SHA-256 of the weight file, which must then have it;
 *        other readers take that line for a comment.
 * @param modelName name for the create functions; each name can be used once in a context. NULL or
 *        "": the file's name without folder and extension.
 * @return 0; 2 not loaded, with the reason in Orv_Context_LastError and to the message handler, or not
 *         a context; -2, -1 on errors.
 */
ORV_API int Orv_Context_SetModel(void* context, const char* controlFileName, const char* modelName);

/**
 * Loads a model from memory; both blocks may be freed when the call returns.
 *
 * @param controlText text of a control file, controlSize bytes, not necessarily zero-terminated; its
 *        WEIGHT entry, where there is one, is not opened. NULL with size 0: no tuning keys.
 * @param weights content of a weight file, weightsSize bytes.
 * @param modelName name for the create functions; must not be empty.
 * @return as Orv_Context_SetModel.
 */
ORV_API int Orv_Context_SetModelFromMemory(void* context, const char* controlText,
                                           size_t controlSize, const void* weights,
                                           size_t weightsSize, const char* modelName);

/**
 * Opens a noise-cleaning session; parameters as Orv_NC_CreateSession. A model of the other kind is
 * refused, also by its name.
 *
 * @return the session's handle; NULL on any failure, with the reason in Orv_Context_LastError and to
 *         the message handler.
 */
ORV_API void* Orv_Context_CreateCleaner(void* context, int inputSampleRate, int outputSampleRate,
                                        int frameDurationMs, const char* modelName);

/** Opens a voice-activity session; parameters as Orv_VAD_CreateSession, otherwise as
 * Orv_Context_CreateCleaner. */
ORV_API void* Orv_Context_CreateDetector(void* context, int sampleRate, int frameDurationMs,
                                         const char* modelName);

/**
 * Sets the function that receives the context's messages. It is called by the thread whose call causes
 * the message, from Orv_Context functions only and never from a frame, by one thread at a time; it must
 * not call functions of the same context. Without a handler a context is silent. When this function
 * returns, the handler before is no longer running and not called again.
 *
 * @param handler NULL for none.
 * @param user handed to the handler as it is.
 * @return 0, or 2 when it is not a context that exists.
 */
ORV_API int Orv_Context_SetMessageHandler(void* context, OrvMessageHandler handler, void* user);

/**
 * The reason of the last call of this thread on the context, or on one of its sessions, that failed.
 *
 * Calls that succeed leave it as it is. Of refused frames, a thread keeps the reasons for the last four
 * contexts in which it had one.
 *
 * @return a text without a line end, valid until this thread's next call into the library; "" when
 *         none has failed. For NULL or a context that does not exist: the reason of this thread's last
 *         failed call that belonged to no context, such as Orv_Context_Create, a context that does not
 *         exist or an unknown session handle.
 */
ORV_API const char* Orv_Context_LastError(void* context);

/** What a model is for. */
enum OrvModelKind { ORV_MODEL_NOISE_CLEANING = 1, ORV_MODEL_VOICE_ACTIVITY = 2 };

/** A model's properties. Later versions add members at the end only. */
typedef struct OrvModelInfo { /* NOLINT(modernize-use-using): C */
  uint32_t size;              /**< set by the caller: sizeof(OrvModelInfo) */
  uint32_t kind;              /**< an OrvModelKind */
  char version[16];           /**< of the algorithm, as "0.0.5"; zero-terminated */
  uint32_t sampleRate;        /**< the model's own rate, Hz */
  uint32_t frameLength;       /**< samples of one analysis frame at the model's rate */
  uint32_t hop;      /**< samples by which it advances; a detector gives one score for each */
  uint32_t latency;  /**< of sessions with frames of 10 ms at the model's own rate, in samples */
  uint32_t reserved; /**< 0 */
  uint64_t weights;  /**< numbers of the network: factors and summands of its layers */
} OrvModelInfo;

/**
 * Tells the properties of a model of the context.
 *
 * @param modelName as given to Orv_Context_SetModel.
 * @param info receives the properties; its member size must be set. No more than that is written, and
 *        members that this version of the library does not know are left as they are.
 * @return 0; 1 when info is NULL or its size too small for size, kind and version; 2 when there is no such
 *         model or context.
 */
ORV_API int Orv_Context_GetModelInfo(void* context, const char* modelName, OrvModelInfo* info);

#ifdef __cplusplus
}
#endif

#endif /* ORVEL_ORV_SDK_EXT_H */
