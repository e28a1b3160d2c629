#include <filesystem>
#include <set>
#include <system_error>

#include "tools/clean_command.h"
#include "tools/open_source.h"

namespace ORVEL::TOOLS {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void refuse(const std::string& reason) { throw ToolError(ExitCode::usage, reason); }

std::vector<CleanJob> intoDirectory(const std::vector<std::string>& inputs,
                                    const fs::path& directory) {
  std::vector<CleanJob> jobs;
  std::set<fs::path> outputs;
  for (const std::string& input : inputs) {
    if (input == kStream) refuse("'-' cannot be written into a directory: name an output file");
    const fs::path output = directory / fs::path(input).filename();
    if (!outputs.insert(output).second) {
      refuse("two inputs would both become '" + output.string() + "'");
    }
    jobs.push_back({input, output.string()});
  }
  return jobs;
}

std::vector<CleanJob> withoutOptionDirectory(const CleanOptions& options) {
  std::vector<std::string> inputs = options.paths;
  if (inputs.size() < 2) refuse("an input and an output are needed: orvel clean IN OUT");
  const std::string output = inputs.back();
  inputs.pop_back();
  std::error_code ignored;
  if (output != kStream && fs::is_directory(output, ignored)) return intoDirectory(inputs, output);
  if (inputs.size() > 1) {
    refuse("several inputs need a directory for the outputs: '" + output + "' is none");
  }
  return {{inputs.front(), output}};
}

}  // namespace

std::vector<CleanJob> pairJobs(const CleanOptions& options) {
  std::vector<CleanJob> jobs;
  if (options.outDirectory) {
    if (options.paths.empty()) refuse("no inputs given");
    if (!fs::is_directory(*options.outDirectory)) {
      refuse("--out-dir: '" + *options.outDirectory + "' is not a directory");
    }
    jobs = intoDirectory(options.paths, *options.outDirectory);
  } else {
    jobs = withoutOptionDirectory(options);
  }
  for (const CleanJob& job : jobs) {
    std::error_code ignored;
    const bool files = job.input != kStream && job.output != kStream;
    if (files && fs::equivalent(job.input, job.output, ignored)) {
      refuse(job.input + ": is input and output at once");
    }
  }
  return jobs;
}

}  // namespace ORVEL::TOOLS
