#pragma once

#include <string>

#include "tools/clean_command.h"
#include "tools/vad_report.h"
#include "tools/vad_segments.h"

namespace ORVEL::TOOLS {

struct VadOptions {
  std::string input;  ///< a sound file, or "-" for raw audio on standard input
  SegmentOptions segments;
  ReportStyle style = ReportStyle::text;
  bool frames = false;  ///< scores instead of segments
  ModelOptions model;
  RawOptions raw;
};

/** `orvel vad`. @throws ToolError */
ExitCode vad(const VadOptions& options, const StandardOutput& standardOutput, Console& console);

}  // namespace ORVEL::TOOLS
