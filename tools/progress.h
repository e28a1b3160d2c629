#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

#include "tools/console.h"

namespace ORVEL::TOOLS {

/** Shows how far work on audio has come and how fast it goes. Counts from several threads. */
class Progress {
 public:
  /** @param label what the line begins with. @param totalSeconds of audio, where known. */
  Progress(Console& console, std::string label, std::optional<double> totalSeconds);
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress();

  /** Counts audio that is done, in seconds; redraws the line a few times a second. */
  void add(double seconds);

  double audioSeconds() const noexcept;
  double wallSeconds() const noexcept;
  /** "12.0 s of audio in 0.50 s (24 x real time)" */
  std::string summary() const;

 private:
  void draw();

  Console& console_;
  std::string label_;
  std::optional<double> total_;
  std::chrono::steady_clock::time_point start_;
  std::atomic<std::int64_t> microseconds_{0};
  std::mutex drawing_;
  std::chrono::steady_clock::time_point lastDrawn_;
};

/** "[#####.....]  50%  12.0 x real time": what a line shows after its label. */
std::string progressText(double doneSeconds, std::optional<double> totalSeconds,
                         double wallSeconds);

}  // namespace ORVEL::TOOLS
