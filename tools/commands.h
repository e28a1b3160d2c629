#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tools/audio.h"
#include "tools/console.h"
#include "tools/models.h"
#include "tools/tool_error.h"
#include "tools/vad_report.h"
#include "tools/vad_segments.h"

namespace ORVEL::TOOLS {

struct CleanOptions {
  std::vector<std::string> paths;  ///< inputs, and the output last unless outDirectory is set
  std::optional<std::string> outDirectory;
  int jobs = 1;
  bool force = false;
  std::optional<float> attenuationLimitDb;
  ModelOptions model;
  StreamOptions stream;
};

struct VadOptions {
  std::vector<std::string> inputs;
  int jobs = 1;
  SegmentOptions segments;
  ReportStyle style = ReportStyle::kText;
  bool frames = false;  ///< scores instead of segments
  ModelOptions model;
  StreamOptions stream;
};

/** `orvel clean`. All of them: @throws ToolError, ClosedPipe */
ExitCode clean(const CleanOptions& options, Console& console);

/** `orvel vad`. */
ExitCode vad(const VadOptions& options, Console& console);

/** `orvel info`: everything about one model or weight file. */
ExitCode info(const std::string& model, const std::optional<std::string>& directory, bool json,
              Console& console);

/** `orvel models`: one line for each model in the model directory. */
ExitCode listModels(const std::optional<std::string>& directory, bool json, Console& console);

/** `orvel keys`: the tuning keys, their values and what they do. */
ExitCode listKeys(bool json);

/**
 * Works on inputs, several at a time. An input that fails is reported and does not stop the others.
 *
 * @param work does number i; throws, or gives the exit code of that input.
 * @param names what to call the inputs in errors that name nothing themselves.
 * @return the code of a single input, kSomeFailed when one of several failed.
 * @throws ToolError (kInterrupted), ClosedPipe
 */
ExitCode runBatch(const std::vector<std::string>& names, int jobs, Console& console,
                  const std::function<ExitCode(std::size_t)>& work);

}  // namespace ORVEL::TOOLS
