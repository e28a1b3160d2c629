#pragma once

#include <exception>
#include <new>
#include <optional>
#include <string_view>
#include <utility>

#include "orv-sdk/last_error.h"
#include "orv-sdk/session_table.h"
#include "utils/call_scope.h"
#include "utils/diagnostics.h"
#include "utils/orvel_exception.h"

/** What the exported functions share: status codes, catching, and the way from a handle to its session. */
namespace ORVEL {

enum Status : int {
  kSuccess = 0,
  kRejected = 1,
  kWrongSession = 2,
  kNotLoaded = 2,
  kLibraryError = -3,
  kStandardError = -2,
  kUndefinedError = -1,
};

/** Writes a line to standard error without the heap; a stream that throws is left alone. Not for frames. */
inline void printError(std::string_view text) noexcept {
  try {
    UTILS::StandardStreams::printError(text);
    UTILS::StandardStreams::printError("\n");
  } catch (...) {  // NOLINT(bugprone-empty-catch): there is nobody left to tell
  }
}

/** Runs an export's body; an exception becomes its text, given to `report`, and `failed(status)`. */
template <class Result, class Body, class Report, class Failed>
Result guarded(Body&& body, Report&& report, Failed&& failed) noexcept {
  try {
    return std::forward<Body>(body)();
  } catch (const UTILS::ORVEL_Exception& error) {
    report(error.what(), error.message());
    return failed(kLibraryError);
  } catch (const std::exception& error) {
    report(error.what(), error.what());
    return failed(kStandardError);
  } catch (...) {
    report("UNDEFINED EXCEPTION", "unknown error");
    return failed(kUndefinedError);
  }
}

/** The same for the functions of the global instance, which print; not for frames. */
template <class Body>
int guardedStatus(Body&& body) noexcept {
  const UTILS::CallScope scope;
  return guarded<int>(
      std::forward<Body>(body),
      [](const char* text, const char* /*message*/) noexcept { printError(text); },
      [](Status status) -> int { return status; });
}

/** The kind of session that a function is for. */
using WantedKind = std::optional<SessionKind>;
inline constexpr WantedKind kAnyKind = std::nullopt;

/** Whether the handle leads to a session of the kind. */
inline bool fits(const OpenSession& open, WantedKind wanted) noexcept {
  return open.session != nullptr && open.kind == wanted.value_or(open.kind);
}

/** Refuses a handle that does not; says so for those of the global instance. */
int refuseHandle(const OpenSession& open, WantedKind wanted) noexcept;

/** Refuses a session that the batch has already. */
int refuseRepeated(const OpenSession& open) noexcept;

/** Says why a call on a session failed: on standard error, or to Orv_Context_LastError for a context's. */
void reportFailure(ContextId context, const char* text, const char* message) noexcept;

/** Runs the body with the open session of that kind; allocates and locks nothing of its own. */
template <class Body>
int withSession(void* handle, WantedKind wanted, Body&& body) noexcept {
  const OpenSession open = SessionTable::get().find(handle);
  if (!fits(open, wanted)) {
    return refuseHandle(open, wanted);
  }
  const UTILS::FloatingPointMode mode(UTILS::FloatingPointMode::Denormals::kKept);
  return guarded<int>([&]() -> int { return body(open); },
                      [&](const char* text, const char* message) noexcept {
                        reportFailure(open.context, text, message);
                      },
                      [](Status status) -> int { return status; });
}

/** The status of a frame: `refusal` and `text` are for one that is refused. Says once that frames fail. */
int statusOf(FrameResult result, const OpenSession& open, Refusal refusal,
             const char* text) noexcept;

inline constexpr const char* kInt16Mismatch =
    "ERROR input dataSize or output dataSize or pointers of inputData output Data is wrong";
inline constexpr const char* kFloatMismatch = "ERROR input dataSize or output dataSize is wrong ";

/** Closes a session of that kind, whichever instance it belongs to. */
int closeSession(void* handle, SessionKind expected) noexcept;

}  // namespace ORVEL
