#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <set>
#include <string>

namespace ORVEL::TOOLS {

enum class Verbosity { kQuiet, kNormal, kVerbose };

/** Messages for the user on standard error, from any thread, and one status line on a terminal. */
class Console {
 public:
  explicit Console(Verbosity verbosity);
  Console(const Console&) = delete;
  Console& operator=(const Console&) = delete;
  ~Console();

  /** True when a status line makes sense: on a terminal, and not quiet. */
  bool showsStatus() const noexcept { return showsStatus_; }
  bool verbose() const noexcept { return verbosity_ == Verbosity::kVerbose; }
  /** Width of the terminal in columns. */
  int columns() const noexcept;

  void error(const std::string& text);  ///< "orvel: TEXT"
  void warning(
      const std::string& text);          ///< "orvel: warning: TEXT", each text once; not when quiet
  void detail(const std::string& text);  ///< "orvel: TEXT", only when verbose
  void summary(const std::string& text);  ///< as it stands, on a terminal or when verbose

  /** Shows (or with "" removes) the status line. */
  void status(const std::string& line);

 private:
  void print(const std::string& line);
  void clearStatus();

  std::mutex mutex_;
  Verbosity verbosity_;
  bool showsStatus_;
  bool statusShown_ = false;
  std::set<std::string> warnings_;
};

/** Shows how far work on audio has come, how fast it goes and how long it will take. Counts from
 * several threads. */
class Progress {
 public:
  /** @param label what the line begins with. @param totalSeconds of audio, where known. */
  Progress(Console& console, std::string label, std::optional<double> totalSeconds);
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress();

  /** Counts audio that is done, in seconds; redraws the line a few times a second. */
  void add(double seconds);
  /** "12.0 s of audio in 0.50 s (24 x real time)" */
  std::string summary() const;

 private:
  double audioSeconds() const noexcept;
  double wallSeconds() const noexcept;
  void draw();

  Console& console_;
  std::string label_;
  std::optional<double> total_;
  std::chrono::steady_clock::time_point start_;
  std::atomic<std::int64_t> microseconds_{0};
  std::mutex drawing_;
  std::chrono::steady_clock::time_point lastDrawn_;
};

/** "[#####.....]  50%  12.0 x real time  1:05 left": what a line shows after its label. */
std::string progressText(double doneSeconds, std::optional<double> totalSeconds,
                         double wallSeconds);

}  // namespace ORVEL::TOOLS
