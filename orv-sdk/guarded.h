#pragma once

#include <exception>
#include <utility>

#include "utils/diagnostics.h"
#include "utils/orvel_exception.h"

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

/** Runs an export's body; an exception becomes its text on standard error and `failed(status)`. */
template <class Result, class Body, class Failed>
Result guarded(Body&& body, Failed&& failed) noexcept {
  try {
    return std::forward<Body>(body)();
  } catch (const UTILS::ORVEL_Exception& error) {
    UTILS::printErrorLine(error.what());
    return failed(kLibraryError);
  } catch (const std::exception& error) {
    UTILS::printErrorLine(error.what());
    return failed(kStandardError);
  } catch (...) {
    UTILS::printErrorLine("UNDEFINED EXCEPTION");
    return failed(kUndefinedError);
  }
}

template <class Body>
int guardedStatus(Body&& body) noexcept {
  return guarded<int>(std::forward<Body>(body), [](Status status) -> int { return status; });
}

template <class Body>
void* guardedHandle(Body&& body) noexcept {
  return guarded<void*>(std::forward<Body>(body), [](Status) -> void* { return nullptr; });
}

}  // namespace ORVEL
