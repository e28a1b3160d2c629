#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "tools/vad_segments.h"

namespace ORVEL::TOOLS {

enum class ReportStyle { kText, kJson, kCsv, kLabels, kRttm };

/** How segments or scores of all inputs are printed. */
struct ReportOptions {
  ReportStyle style = ReportStyle::kText;
  bool frames = false;   ///< scores instead of segments
  bool several = false;  ///< inputs: lines tell which, JSON is a list
};

/** Prints the segments or scores of one input as they come. Times in seconds, to the millisecond. */
class VadReport {
 public:
  using Write = std::function<void(const std::string&)>;
  virtual ~VadReport() = default;
  virtual void begin() {}
  virtual void segment(const Segment& segment) = 0;
  /** The score of the 10 ms that begin at `start` seconds. */
  virtual void frame(double start, double score) = 0;
  virtual void end(double /*seconds*/) {}
};

/** @param input what the report calls the audio. @param write takes each finished piece of text. */
std::unique_ptr<VadReport> makeReport(const ReportOptions& options, const std::string& input,
                                      VadReport::Write write);

/**
 * Prints what is written for several inputs at a time in the order of the inputs, with what stands
 * around them: a heading, separators and an end. Used from several threads.
 */
class OrderedOutput {
 public:
  using Print = std::function<void(const std::string&)>;
  OrderedOutput(const ReportOptions& options, std::size_t inputs, Print print);

  /** Text of an input; printed at once when its turn has come. */
  void write(std::size_t input, const std::string& text);
  /** Nothing more comes for an input. */
  void finish(std::size_t input);
  /** After the last input. */
  void end();

 private:
  void print(const std::string& text);

  std::mutex mutex_;
  Print print_;
  std::string before_;  // to be printed before the next input's first text
  std::string separator_;
  std::string end_;
  std::vector<std::string> waiting_;
  std::vector<bool> finished_;
  std::size_t turn_ = 0;
  bool begun_ = false;  // the input whose turn it is has printed something
};

}  // namespace ORVEL::TOOLS
