#include "tools/progress.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <utility>

namespace ORVEL::TOOLS {
namespace {

using Clock = std::chrono::steady_clock;

std::string speed(double audio, double wall) {
  const double ratio = wall > 0.0 ? audio / wall : 0.0;
  std::array<char, 48> text{};
  std::snprintf(text.data(), text.size(), ratio < 100.0 ? "%.1f x real time" : "%.0f x real time",
                ratio);
  return text.data();
}

}  // namespace

std::string progressText(double doneSeconds, std::optional<double> totalSeconds,
                         double wallSeconds) {
  std::array<char, 64> text{};
  if (!totalSeconds || *totalSeconds <= 0.0) {
    std::snprintf(text.data(), text.size(), "%.1f s  ", doneSeconds);
    return text.data() + speed(doneSeconds, wallSeconds);
  }
  constexpr int kCells = 30;
  // A header may claim any length: the bar never runs over.
  const double share = std::clamp(doneSeconds / *totalSeconds, 0.0, 1.0);
  const auto filled = static_cast<std::size_t>(share * kCells);
  std::snprintf(text.data(), text.size(), "] %3.0f%%  ", std::floor(share * 100.0));
  std::string line(1, '[');
  line.append(filled, '#').append(kCells - filled, '.').append(text.data());
  return line.append(speed(doneSeconds, wallSeconds));
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
  if (console_.terminal()) draw();
}

double Progress::audioSeconds() const noexcept { return static_cast<double>(microseconds_) * 1e-6; }

double Progress::wallSeconds() const noexcept {
  return std::chrono::duration<double>(Clock::now() - start_).count();
}

std::string Progress::summary() const {
  std::array<char, 64> text{};
  const double wall = wallSeconds();
  std::snprintf(text.data(), text.size(), "%.1f s of audio in %.2f s (", audioSeconds(), wall);
  return text.data() + speed(audioSeconds(), wall) + ")";
}

void Progress::draw() {
  const std::unique_lock lock(drawing_, std::try_to_lock);
  if (!lock) return;
  constexpr auto kInterval = std::chrono::milliseconds(100);
  const auto now = Clock::now();
  if (now - lastDrawn_ < kInterval) return;
  lastDrawn_ = now;
  std::string line = label_ + "  " + progressText(audioSeconds(), total_, wallSeconds());
  const auto width = static_cast<std::size_t>(std::max(console_.columns() - 1, 1));
  if (line.size() > width) line.erase(0, line.size() - width);
  console_.status(line);
}

}  // namespace ORVEL::TOOLS
