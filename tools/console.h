#pragma once

#include <functional>
#include <mutex>
#include <string>

namespace ORVEL::TOOLS {

/** Messages for the user on standard error, from any thread, and one status line on a terminal. */
class Console {
 public:
  explicit Console(bool verbose);
  Console(const Console&) = delete;
  Console& operator=(const Console&) = delete;
  ~Console();

  bool verbose() const noexcept { return verbose_; }
  /** True when standard error is a terminal, so that a status line makes sense. */
  bool terminal() const noexcept { return terminal_; }
  /** Width of the terminal in columns. */
  int columns() const noexcept;

  void error(const std::string& text);    ///< "orvel: TEXT"
  void warning(const std::string& text);  ///< "orvel: warning: TEXT"
  void detail(const std::string& text);   ///< only when verbose
  void text(const std::string& text);     ///< as it stands, with a line end if it lacks one

  /** capturePrinted() during which no other thread's message gets into the captured text. */
  std::string capture(const std::function<void()>& work);

  /** Shows (or with "" removes) the status line; nothing unless on a terminal. */
  void status(const std::string& line);

 private:
  void print(const std::string& line);
  void clearStatus();

  std::mutex mutex_;
  bool verbose_;
  bool terminal_;
  bool statusShown_ = false;
};

}  // namespace ORVEL::TOOLS
