/*
 * ORVEL: removal of ambient noise from live mono speech, and voice activity scores.
 *
 * Life cycle: Orv_SDK_GlobalInit once; Orv_SDK_SetModel once per model name; any number of sessions,
 * each created, fed one frame of audio per call and closed; Orv_SDK_GlobalDestroy once. Sessions that
 * are still open at destroy are closed by it. The cycle may be repeated.
 *
 * Audio: mono. Sample rates 8000, 12000, 16000, 24000, 32000, 44100, 48000, 88200 and 96000 Hz.
 * Frames of 10, 20, 30 or 40 ms: a call takes rate * ms / 1000 samples (rounded down) at the input
 * rate and gives as many at the output rate.
 *
 * Threads: the library starts none. Every function may be called from any thread. A session may be
 * used by one thread at a time, and must not be closed while another call uses it; different sessions
 * are independent, also of sessions being created or closed and of models being loaded meanwhile.
 * Nothing else may use the instance or its sessions during Orv_SDK_GlobalDestroy.
 *
 * Process: exit may be called while threads process audio or open sessions; nothing is freed at exit.
 * The library stays loaded: after dlclose its sessions go on, and a later dlopen finds them. After fork
 * the child may use contexts (orv_sdk_ext.h) that it creates itself, and nothing that was open before; a
 * fork waits for calls that load models or open or close sessions. A message handler must not fork.
 *
 * Real time: the two clean functions allocate no memory and take no lock; they make no system call but
 * those that write the reason of a refused frame. All other functions may allocate, lock and read files.
 *
 * Arithmetic: every call computes with rounding to nearest and without traps, in frames with denormal
 * numbers as zero, whatever floating-point mode the thread has set, and leaves the thread's mode and flags
 * as they were.
 *
 * Errors: no exception leaves the library. Functions that return int give
 *    0  success
 *    1  frame rejected, or session not closed
 *    2  unknown or wrong session, or model not loaded
 *   -3  error of the library (not initialised, initialised twice, wrong handle to close, ...)
 *   -2  error of the C++ standard library (out of memory, ...)
 *   -1  anything else
 * and functions that create give NULL. The reason is written to standard error, except that
 *    - Orv_SDK_SetModel writes to standard output: its entries as it reads them, and why a model is not
 *      loaded. It writes no reason when the model name is in use, when the control file cannot be read, is
 *      larger than 1 MiB, holds no entry or an entry without a value, or sets a tuning key twice;
 *    - warnings of tuning keys, given when a session is created, go to standard output;
 *    - a null result pointer and an attenuation limit out of range (orv_sdk_ext.h) give 1 and no text.
 * The reason of a refused frame is written by one write to descriptor 2, not through the streams of C or
 * C++. It is left out when that would wait or has no reader, and when more than 1000 come in a burst or
 * more than 10 a second for long. It raises no signal and leaves errno as it was.
 * Programs that need the reasons, or must not print, use the contexts of orv_sdk_ext.h.
 *
 * Numbers in control files are read as in the C locale, whatever locale the program has set.
 *
 * Strings are zero-terminated, taken as bytes (UTF-8 where the file system uses it) and copied.
 */
#ifndef ORVEL_ORV_SDK_H
#define ORVEL_ORV_SDK_H

#include <stdint.h>

#if defined(ORVEL_STATIC)
#define ORV_API
#elif defined(_WIN32)
#if defined(ORVEL_BUILDING_LIBRARY)
#define ORV_API __declspec(dllexport)
#else
#define ORV_API __declspec(dllimport)
#endif
#else
#define ORV_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Creates the library's one instance.
 *
 * @param modelDirectory directory that relative control-file and weight-file paths start from; NULL
 *        stands for "" (the current directory). A separator is appended where it has none.
 * @return 0, or -3 when the library is initialised already.
 */
ORV_API int Orv_SDK_GlobalInit(const char* modelDirectory);

/**
 * Destroys the instance with its models and every session still open. All handles become invalid and
 * are refused from then on.
 *
 * @return 0, or -3 when the library is not initialised.
 */
ORV_API int Orv_SDK_GlobalDestroy(void);

/**
 * Loads a model: a control file that names a weight file and sets tuning keys, one entry per line.
 *
 * Models whose weight files have the same base name share the weights that were loaded first. Of a weight
 * file that is cut inside a record, the records before it are used; whether they suffice shows when a
 * session is created. Files are read outside of all locks; one of more than 256 MiB is not loaded. Unless
 * the result is 0 nothing is registered.
 *
 * @param controlFileName path of the control file, relative to the model directory unless it starts
 *        with a drive letter: an absolute POSIX path works only without a model directory.
 * @param modelName name for the create functions; each name can be registered once.
 * @return 0 loaded; 2 not loaded; -3, -2, -1 on errors.
 */
ORV_API int Orv_SDK_SetModel(const char* controlFileName, const char* modelName);

/**
 * Opens a noise-cleaning session.
 *
 * @param inputSampleRate rate of the frames given, in Hz (one of the nine).
 * @param outputSampleRate rate of the frames returned, in Hz (one of the nine).
 * @param frameDurationMs 10, 20, 30 or 40.
 * @param modelName a name given to Orv_SDK_SetModel, or NULL for the noise-cleaning model whose own
 *        rate is nearest to inputSampleRate without being above it, the first loaded on a tie;
 *        models whose weights do not tell kind and rate are passed over. A named model is taken
 *        whatever it is for: with a voice-activity model the session is one of voice activity, which
 *        only the functions for those accept.
 * @return the session's handle, owned by the library until it is closed; NULL on any failure. A handle
 *         is never given out twice within a process.
 */
ORV_API void* Orv_NC_CreateSession(int inputSampleRate, int outputSampleRate, int frameDurationMs,
                                   const char* modelName);

/**
 * Opens a voice-activity session; frames are processed by the functions of orv_sdk_ext.h.
 *
 * @param sampleRate rate of the frames given, in Hz (one of the nine).
 * @param frameDurationMs 10, 20, 30 or 40; the detector is made for 10 and says so for the others.
 * @param modelName as for Orv_NC_CreateSession, with voice-activity models. A session with a noise-cleaning
 *        model by name is one of noise cleaning; it takes frames with 0 samples at the output.
 * @return the session's handle, or NULL on any failure.
 */
ORV_API void* Orv_VAD_CreateSession(int sampleRate, int frameDurationMs, const char* modelName);

/**
 * Closes a noise-cleaning session.
 *
 * @return 0 closed; 1 not closed (closed by another thread meanwhile); -3 when the handle is not that
 *         of an open noise-cleaning session.
 */
ORV_API int Orv_NC_CloseSession(void* session);

/** Closes a voice-activity session; results as Orv_NC_CloseSession. */
ORV_API int Orv_VAD_CloseSession(void* session);

/**
 * Cleans one frame of 16-bit samples. Real-time safe.
 *
 * @param session handle of a noise-cleaning session.
 * @param input inputCount samples at the session's input rate.
 * @param inputCount inputSampleRate * frameDurationMs / 1000.
 * @param output receives outputCount samples; may be the same array as input, must not overlap it
 *        otherwise.
 * @param outputCount outputSampleRate * frameDurationMs / 1000.
 * @return 0; 1 when a count or pointer is wrong (nothing is written to output, the stream is unchanged);
 *         2 when the handle is not that of an open noise-cleaning session; -3 when it is unknown and the
 *         library not initialised, or when the frame could not be processed: the output is silent then.
 */
ORV_API int Orv_NC_CleanAmbientNoiseInt16(void* session, const int16_t* input, uint32_t inputCount,
                                          int16_t* output, uint32_t outputCount);

/**
 * Cleans one frame of floats, full scale +/-1.0; the output lies in [-1, 32767/32768]. Input that is
 * not a number or infinite counts as 0. Otherwise as Orv_NC_CleanAmbientNoiseInt16.
 */
ORV_API int Orv_NC_CleanAmbientNoiseFloat(void* session, const float* input, uint32_t inputCount,
                                          float* output, uint32_t outputCount);

#ifdef __cplusplus
}
#endif

#endif /* ORVEL_ORV_SDK_H */
