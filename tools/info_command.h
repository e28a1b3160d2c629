#pragma once

#include <optional>
#include <string>

#include "tools/console.h"
#include "tools/standard_output.h"
#include "tools/tool_error.h"

namespace ORVEL::TOOLS {

/** `orvel info`: everything about one control or weight file. @throws ToolError */
ExitCode info(const std::string& file, bool json, const StandardOutput& standardOutput,
              Console& console);

/** `orvel models`: one line for each model in the model directory. @throws ToolError */
ExitCode listModels(const std::optional<std::string>& directory, bool json,
                    const StandardOutput& standardOutput, Console& console);

/** `orvel keys`: the tuning keys, their values and what they do. @throws ToolError */
ExitCode listKeys(bool json, const StandardOutput& standardOutput);

}  // namespace ORVEL::TOOLS
