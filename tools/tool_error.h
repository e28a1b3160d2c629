#pragma once

#include <stdexcept>
#include <string>

namespace ORVEL::TOOLS {

/** What the program returns to the shell; listed in `orvel --help`. */
enum class ExitCode : int {
  ok = 0,
  internal = 1,
  usage = 2,
  input = 3,
  output = 4,
  model = 5,
  someFailed = 6,
  interrupted = 130,
};

/** An error for the user: the text names the file (or option) and the reason. */
class ToolError : public std::runtime_error {
 public:
  ToolError(ExitCode code, const std::string& text) : std::runtime_error(text), code_(code) {}
  ExitCode code() const noexcept { return code_; }

 private:
  ExitCode code_;
};

}  // namespace ORVEL::TOOLS
