#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "tools/console.h"
#include "tools/tool_error.h"

namespace ORVEL::TOOLS {

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
