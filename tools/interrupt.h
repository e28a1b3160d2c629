#pragma once

namespace ORVEL::TOOLS {

/**
 * Makes SIGINT, SIGTERM and SIGHUP set a flag instead of ending the program, so that half-written
 * files are removed on the way out; a second signal ends it at once. A closed pipe becomes a write
 * error.
 */
void watchSignals();

bool interrupted() noexcept;

/** @throws ToolError (interrupted) after a signal. */
void throwIfInterrupted();

}  // namespace ORVEL::TOOLS
