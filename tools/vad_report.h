#pragma once

#include <functional>
#include <memory>
#include <string>

#include "tools/vad_segments.h"

namespace ORVEL::TOOLS {

enum class ReportStyle { text, json, csv, labels };

/** Writes segments or scores as they come. Times have millisecond resolution, in seconds. */
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

/** @param input name that the report mentions. @param write takes each finished piece of text. */
std::unique_ptr<VadReport> makeReport(ReportStyle style, const std::string& input,
                                      VadReport::Write write);

}  // namespace ORVEL::TOOLS
