#include "tools/console.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>

#include "tools/standard_output.h"

namespace ORVEL::TOOLS {

Console::Console(bool verbose) : verbose_(verbose), terminal_(::isatty(STDERR_FILENO) == 1) {}

Console::~Console() { status(""); }

int Console::columns() const noexcept {
  struct winsize size {};
  constexpr int kUsual = 80;
  return ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kUsual;
}

void Console::error(const std::string& text) { print("orvel: " + text); }

void Console::warning(const std::string& text) { print("orvel: warning: " + text); }

void Console::detail(const std::string& text) {
  if (verbose_) print("orvel: " + text);
}

void Console::text(const std::string& text) {
  if (!text.empty()) print(text.back() == '\n' ? text.substr(0, text.size() - 1) : text);
}

void Console::status(const std::string& line) {
  if (!terminal_) return;
  const std::lock_guard lock(mutex_);
  clearStatus();
  if (!line.empty()) {
    std::fputs(line.c_str(), stderr);
    std::fflush(stderr);
    statusShown_ = true;
  }
}

std::string Console::capture(const std::function<void()>& work) {
  const std::lock_guard lock(mutex_);
  return capturePrinted(work);
}

void Console::print(const std::string& line) {
  const std::lock_guard lock(mutex_);
  clearStatus();
  std::fprintf(stderr, "%s\n", line.c_str());
}

void Console::clearStatus() {
  if (!statusShown_) return;
  std::fputs("\r\033[K", stderr);
  statusShown_ = false;
}

}  // namespace ORVEL::TOOLS
