#pragma once

#include <functional>
#include <string>

#include "tools/unique_fd.h"

namespace ORVEL::TOOLS {

/**
 * Keeps data and chatter apart. From construction on descriptor 1 leads to standard error, so that
 * whatever a library prints cannot get into the data; descriptor() is the real standard output.
 */
class StandardOutput {
 public:
  StandardOutput();
  int descriptor() const noexcept { return real_.get(); }
  /** Writes text to the real standard output. @throws ToolError (output) */
  void write(const std::string& text) const;

 private:
  UniqueFd real_;
};

/**
 * Runs the work and gives back what was printed to descriptors 1 and 2 meanwhile, in order. The
 * redirection is one for the whole process: one caller at a time.
 */
std::string capturePrinted(const std::function<void()>& work);

/** The part of a loader's or cleaner's texts that a user must see: all but the echo of its entries. */
std::string withoutEcho(const std::string& printed);

}  // namespace ORVEL::TOOLS
