#include "tools/commands.h"

#include <algorithm>
#include <exception>
#include <thread>

#include "orvel/orvel.hpp"
#include "tools/tool_error.h"

namespace ORVEL::TOOLS {

Inputs::Inputs(const std::vector<std::string>& names, Console& console)
    : names_(names), console_(console), codes_(names.size(), ExitCode::kInterrupted) {}

std::optional<std::size_t> Inputs::next() {
  if (interrupted() || pipeClosed_) {
    return std::nullopt;
  }
  const std::size_t i = next_++;
  return i < names_.size() ? std::optional(i) : std::nullopt;
}

bool Inputs::attempt(std::size_t i, const std::function<void()>& part) {
  codes_[i] = ExitCode::kInternal;
  try {
    part();
    return true;
  } catch (const ToolError& error) {
    if (error.code() != ExitCode::kInterrupted) {
      console_.error(error.what());
    }
    codes_[i] = error.code();
  } catch (const ClosedPipe&) {
    pipeClosed_ = true;
  } catch (const orvel::Error& error) {
    console_.error(names_[i] + ": " + error.what());
    codes_[i] = ExitCode::kModel;
  } catch (const std::exception& error) {
    console_.error(names_[i] + ": " + error.what());
  }
  return false;
}

ExitCode Inputs::result() const {
  throwIfInterrupted();
  if (pipeClosed_) {
    throw ClosedPipe();
  }
  if (names_.size() == 1) {
    return codes_.front();
  }
  const auto failed = std::count_if(codes_.begin(), codes_.end(),
                                    [](ExitCode code) { return code != ExitCode::kOk; });
  if (failed == 0) {
    return ExitCode::kOk;
  }
  console_.error(std::to_string(failed) + " of " + std::to_string(names_.size()) +
                 " inputs failed");
  return ExitCode::kSomeFailed;
}

ExitCode runBatch(const std::vector<std::string>& names, int jobs, Console& console,
                  const std::function<void(Inputs&)>& worker) {
  Inputs inputs(names, console);
  {
    std::vector<std::jthread> threads;
    const std::size_t count = std::min(names.size(), static_cast<std::size_t>(std::max(jobs, 1)));
    for (std::size_t i = 1; i < count; ++i) {
      threads.emplace_back([&] { worker(inputs); });
    }
    worker(inputs);
  }
  return inputs.result();
}

ExitCode runBatch(const std::vector<std::string>& names, int jobs, Console& console,
                  const std::function<ExitCode(std::size_t)>& work) {
  return runBatch(names, jobs, console, [&](Inputs& inputs) {
    while (const auto i = inputs.next()) {
      ExitCode code{};
      if (inputs.attempt(*i, [&] { code = work(*i); })) {
        inputs.done(*i, code);
      }
    }
  });
}

}  // namespace ORVEL::TOOLS
