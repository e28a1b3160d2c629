#include "tools/console.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>

#include "tools/tool_error.h"

namespace ORVEL::TOOLS {
namespace {

using Clock = std::chrono::steady_clock;

std::string speed(double audio, double wall) {
  const double ratio = wall > 0.0 ? audio / wall : 0.0;
  return formatText(ratio < 100.0 ? "%.1f x real time" : "%.0f x real time", ratio);
}

// "0:07", "12:30", "3:05:00"
std::string clock(double seconds) {
  constexpr double kMost = 359999.0;  // 99:59:59
  const int all = static_cast<int>(std::min(std::round(seconds), kMost));
  const int hours = all / 3600;
  return hours > 0 ? formatText("%d:%02d:%02d", hours, all / 60 % 60, all % 60)
                   : formatText("%d:%02d", all / 60, all % 60);
}

}  // namespace

Console::Console(Verbosity verbosity)
    : verbosity_(verbosity),
      showsStatus_(verbosity != Verbosity::kQuiet && ::isatty(STDERR_FILENO) == 1) {}

Console::~Console() { status(""); }

int Console::columns() const noexcept {
  struct winsize size {};
  constexpr int kUsual = 80;
  return ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kUsual;
}

void Console::error(const std::string& text) {
  const std::lock_guard lock(mutex_);
  print("orvel: " + text);
}

void Console::warning(const std::string& text) {
  const std::lock_guard lock(mutex_);
  if (verbosity_ != Verbosity::kQuiet && warnings_.insert(text).second) {
    print("orvel: warning: " + text);
  }
}

void Console::detail(const std::string& text) {
  const std::lock_guard lock(mutex_);
  if (verbose()) {
    print("orvel: " + text);
  }
}

void Console::summary(const std::string& text) {
  const std::lock_guard lock(mutex_);
  if (showsStatus_ || verbose()) {
    print(text);
  }
}

void Console::status(const std::string& line) {
  if (!showsStatus_) {
    return;
  }
  const std::lock_guard lock(mutex_);
  clearStatus();
  if (!line.empty()) {
    std::fputs(line.c_str(), stderr);
    std::fflush(stderr);
    statusShown_ = true;
  }
}

void Console::print(const std::string& line) {
  clearStatus();
  std::fprintf(stderr, "%s\n", line.c_str());
}

void Console::clearStatus() {
  if (statusShown_) {
    std::fputs("\r\033[K", stderr);
    statusShown_ = false;
  }
}

std::string progressText(double doneSeconds, std::optional<double> totalSeconds,
                         double wallSeconds) {
  if (!totalSeconds || *totalSeconds <= 0.0) {
    return formatText("%.1f s  ", doneSeconds) + speed(doneSeconds, wallSeconds);
  }
  constexpr int kCells = 30;
  // A header may claim any length: the bar never runs over.
  const double share = std::clamp(doneSeconds / *totalSeconds, 0.0, 1.0);
  const auto filled = static_cast<std::size_t>(share * kCells);
  std::string line(1, '[');
  line.append(filled, '#').append(kCells - filled, '.').append("]");
  line += formatText(" %3.0f%%  ", std::floor(share * 100.0)) + speed(doneSeconds, wallSeconds);
  if (share > 0.0 && share < 1.0) {
    line += "  " + clock(wallSeconds * (1.0 - share) / share) + " left";
  }
  return line;
}

Progress::Progress(Console& console, std::string label, std::optional<double> totalSeconds)
    : console_(console),
      label_(std::move(label)),
      total_(totalSeconds),
      start_(Clock::now()),
      lastDrawn_(start_) {}

Progress::~Progress() { console_.status(""); }

void Progress::add(double seconds) {
  microseconds_ += std::llround(seconds * 1e6);
  if (console_.showsStatus()) {
    draw();
  }
}

std::string Progress::summary() const {
  return formatText("%.1f s of audio in %.2f s (", audioSeconds(), wallSeconds()) +
         speed(audioSeconds(), wallSeconds()) + ")";
}

double Progress::audioSeconds() const noexcept { return static_cast<double>(microseconds_) * 1e-6; }

double Progress::wallSeconds() const noexcept {
  return std::chrono::duration<double>(Clock::now() - start_).count();
}

void Progress::draw() {
  const std::unique_lock lock(drawing_, std::try_to_lock);
  constexpr auto kInterval = std::chrono::milliseconds(100);
  const auto now = Clock::now();
  if (!lock || now - lastDrawn_ < kInterval) {
    return;
  }
  lastDrawn_ = now;
  std::string line = label_ + "  " + progressText(audioSeconds(), total_, wallSeconds());
  const auto width = static_cast<std::size_t>(std::max(console_.columns() - 1, 1));
  if (line.size() > width) {
    line.erase(0, line.size() - width);
  }
  console_.status(line);
}

}  // namespace ORVEL::TOOLS
