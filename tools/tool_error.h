// How a command ends: exit codes, errors, signals; and text for its messages.
#pragma once

#include <stdexcept>
#include <string>

namespace ORVEL::TOOLS {

/** What the program returns to the shell; listed in `orvel --help`. */
enum class ExitCode : int {
  kOk = 0,
  kInternal = 1,
  kUsage = 2,
  kInput = 3,
  kOutput = 4,
  kModel = 5,
  kSomeFailed = 6,
  kInterrupted = 130,
};

/** An error for the user: the text names the file (or option) and the reason. */
class ToolError : public std::runtime_error {
 public:
  ToolError(ExitCode code, const std::string& text) : std::runtime_error(text), code_(code) {}
  ExitCode code() const noexcept { return code_; }

 private:
  ExitCode code_;
};

/** Whoever read our output has gone: the program ends without a word, as others do. */
class ClosedPipe : public std::exception {
 public:
  const char* what() const noexcept override { return "closed pipe"; }
};

/**
 * Makes SIGINT, SIGTERM and SIGHUP set a flag instead of ending the program, so that half-written
 * files are removed on the way out; a second signal ends it at once. A closed pipe and a file that
 * grows too large become write errors.
 */
void watchSignals();

bool interrupted() noexcept;

/** @throws ToolError (kInterrupted) after a signal. */
void throwIfInterrupted();

/** Ends the program by SIGPIPE, as a program ends that does not look after its pipes. */
[[noreturn]] void endByClosedPipe();

/** printf() into a string of at most 255 characters. */
#if defined(__GNUC__)
__attribute__((format(printf, 1, 2)))
#endif
std::string
formatText(const char* pattern, ...);

}  // namespace ORVEL::TOOLS
