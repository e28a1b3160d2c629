#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/console.h"
#include "tools/options.h"
#include "tools/standard_output.h"
#include "tools/tool_error.h"

namespace ORVEL::TOOLS {

struct CleanOptions {
  std::vector<std::string> paths;  ///< inputs, and the output last unless outDirectory is set
  std::optional<std::string> outDirectory;
  int jobs = 1;
  bool force = false;
  std::optional<float> attenuationLimitDb;
  ModelOptions model;
  RawOptions raw;
};

/** One input and where its cleaned form goes; "-" stands for standard input and output. */
struct CleanJob {
  std::string input;
  std::string output;
};

/**
 * Pairs inputs with outputs: IN OUT, IN... DIRECTORY, or IN... with an output directory.
 * @throws ToolError (usage) for pairs that do not fit, an output that is its own input, or two inputs
 *         with one output.
 */
std::vector<CleanJob> pairJobs(const CleanOptions& options);

/** `orvel clean`. @throws ToolError */
ExitCode clean(const CleanOptions& options, const StandardOutput& standardOutput, Console& console);

}  // namespace ORVEL::TOOLS
