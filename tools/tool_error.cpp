#include "tools/tool_error.h"

#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <cstdarg>
#include <cstdio>

namespace ORVEL::TOOLS {
namespace {

static_assert(std::atomic<bool>::is_always_lock_free);  // so that a handler may set it
std::atomic<bool> signalSeen{false};

extern "C" void noteSignal(int) { signalSeen.store(true); }

}  // namespace

void watchSignals() {
  struct sigaction action {};
  action.sa_handler = noteSignal;
  // No SA_RESTART: a blocking read has to come back. SA_RESETHAND: the second signal ends it.
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  sigemptyset(&action.sa_mask);
  for (int number : {SIGINT, SIGTERM, SIGHUP}) {
    sigaction(number, &action, nullptr);
  }
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
}

bool interrupted() noexcept { return signalSeen.load(); }

void throwIfInterrupted() {
  if (interrupted()) {
    throw ToolError(ExitCode::kInterrupted, "interrupted");
  }
}

void endByClosedPipe() {
  std::signal(SIGPIPE, SIG_DFL);
  std::raise(SIGPIPE);
  ::_exit(static_cast<int>(ExitCode::kOutput));  // where SIGPIPE is blocked
}

std::string formatText(const char* pattern, ...) {
  std::array<char, 256> text{};
  std::va_list values;
  va_start(values, pattern);
  std::vsnprintf(text.data(), text.size(), pattern, values);
  va_end(values);
  return text.data();
}

}  // namespace ORVEL::TOOLS
