#pragma once

#include <cstdint>
#include <string_view>

#include "orv-sdk/session_table.h"

/** Why calls failed, for each thread and context; number 0 is for calls that belong to no context. */
namespace ORVEL {

/** Failures of the calls that process frames, which must not use the heap. */
enum class Refusal : std::uint32_t {
  kNone,
  kUnknownHandle,
  kNotCleaning,
  kNotDetecting,
  kFrame,
  kDetectorFrame,
  kTransform,
  kLimit,
  kNullResult,
  kNullArray,
  kRepeated,
};

/**
 * Keeps the reason of a refused frame in the thread's static storage, with the frame sizes of the session.
 * A thread keeps those of the last four contexts in which it had one. Real-time safe.
 */
void rememberRefusal(ContextId context, Refusal refusal, std::uint32_t inputSize = 0,
                     std::uint32_t outputSize = 0) noexcept;

/** Keeps a reason on the heap; without memory for it there is none. */
void rememberFailure(ContextId context, std::string_view reason) noexcept;

/** Of a context that is gone. */
void forgetFailure(ContextId context) noexcept;

/** The text of the thread's last failure on that context, "" for none; valid until its next call. */
const char* lastFailure(ContextId context) noexcept;

}  // namespace ORVEL
