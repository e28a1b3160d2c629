#pragma once

namespace ORVEL::TOOLS {

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

}  // namespace ORVEL::TOOLS
