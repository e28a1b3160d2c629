#include "tools/commands.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <thread>

#include "orvel/orvel.hpp"
#include "tools/tool_error.h"

namespace ORVEL::TOOLS {

ExitCode runBatch(const std::vector<std::string>& names, int jobs, Console& console,
                  const std::function<ExitCode(std::size_t)>& work) {
  std::vector<ExitCode> codes(names.size(), ExitCode::kInterrupted);
  std::atomic<std::size_t> next{0};
  std::atomic<bool> pipeClosed{false};
  const auto reported = [&](std::size_t i) {
    try {
      return work(i);
    } catch (const ToolError& error) {
      if (error.code() != ExitCode::kInterrupted) {
        console.error(error.what());
      }
      return error.code();
    } catch (const ClosedPipe&) {
      pipeClosed = true;
    } catch (const orvel::Error& error) {
      console.error(names[i] + ": " + error.what());
      return ExitCode::kModel;
    } catch (const std::exception& error) {
      console.error(names[i] + ": " + error.what());
    }
    return ExitCode::kInternal;
  };
  const auto worker = [&] {
    for (std::size_t i = next++; i < names.size() && !interrupted() && !pipeClosed; i = next++) {
      codes[i] = reported(i);
    }
  };
  {
    std::vector<std::jthread> threads;
    const std::size_t count = std::min(names.size(), static_cast<std::size_t>(std::max(jobs, 1)));
    for (std::size_t i = 1; i < count; ++i) {
      threads.emplace_back(worker);
    }
    worker();
  }
  throwIfInterrupted();
  if (pipeClosed) {
    throw ClosedPipe();
  }
  if (names.size() == 1) {
    return codes.front();
  }
  const auto failed = std::count_if(codes.begin(), codes.end(),
                                    [](ExitCode code) { return code != ExitCode::kOk; });
  if (failed == 0) {
    return ExitCode::kOk;
  }
  console.error(std::to_string(failed) + " of " + std::to_string(names.size()) + " inputs failed");
  return ExitCode::kSomeFailed;
}

}  // namespace ORVEL::TOOLS
