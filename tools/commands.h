#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tools/audio.h"
#include "tools/console.h"
#include "tools/models.h"
#include "tools/tool_error.h"
#include "tools/vad_report.h"
#include "tools/vad_segments.h"

namespace ORVEL::TOOLS {

struct CleanOptions {
  std::vector<std::string> paths;  ///< inputs, and the output last unless outDirectory is set
  std::optional<std::string> outDirectory;
  int jobs = 1;
  bool force = false;
  std::optional<float> attenuationLimitDb;
  ModelOptions model;
  StreamOptions stream;
};

struct VadOptions {
  std::vector<std::string> inputs;
  int jobs = 1;
  SegmentOptions segments;
  ReportStyle style = ReportStyle::kText;
  bool frames = false;  ///< scores instead of segments
  ModelOptions model;
  StreamOptions stream;
};

struct ReportCommandOptions {
  std::string noisy;
  std::optional<std::string> cleaned;  ///< none: the noisy recording is cleaned
  std::string output;
  double start = 0.0;              ///< seconds into the recording
  std::optional<double> duration;  ///< seconds; none: to the end
  bool force = false;
  std::optional<float> attenuationLimitDb;
  ModelOptions model;
};

/** `orvel clean`. All of them: @throws ToolError, ClosedPipe */
ExitCode clean(const CleanOptions& options, Console& console);

/** `orvel vad`. */
ExitCode vad(const VadOptions& options, Console& console);

/** `orvel report`: a page that shows a recording before and after. */
ExitCode report(const ReportCommandOptions& options, Console& console);

/** `orvel info`: everything about one model or weight file. */
ExitCode info(const std::string& model, const std::optional<std::string>& directory, bool json,
              Console& console);

/** `orvel models`: one line for each model in the model directory. */
ExitCode listModels(const std::optional<std::string>& directory, bool json, Console& console);

/** `orvel keys`: the tuning keys, their values and what they do. */
ExitCode listKeys(bool json);

/** Hands inputs out to the threads that work on them, and reports those that fail. */
class Inputs {
 public:
  Inputs(const std::vector<std::string>& names, Console& console);

  /** The next input; none at the end, after a signal and without a reader of the output. */
  std::optional<std::size_t> next();
  /** A part of the work on input i; when it throws, the error is reported, i is done, and false given. */
  bool attempt(std::size_t i, const std::function<void()>& part);
  /** The whole input is through. */
  void done(std::size_t i, ExitCode code) { codes_[i] = code; }
  /** As runBatch ends. */
  ExitCode result() const;

 private:
  const std::vector<std::string>& names_;
  Console& console_;
  std::vector<ExitCode> codes_;
  std::atomic<std::size_t> next_{0};
  std::atomic<bool> pipeClosed_{false};
};

/**
 * Works on inputs in several threads. An input that fails is reported and does not stop the others.
 *
 * @param worker takes inputs until there are no more; runs once in each thread and throws nothing.
 * @param names what to call the inputs in errors that name nothing themselves.
 * @return the code of a single input, kSomeFailed when one of several failed.
 * @throws ToolError (kInterrupted), ClosedPipe
 */
ExitCode runBatch(const std::vector<std::string>& names, int jobs, Console& console,
                  const std::function<void(Inputs&)>& worker);
/** The same, one input after the other in each thread. @param work does input i and gives its code. */
ExitCode runBatch(const std::vector<std::string>& names, int jobs, Console& console,
                  const std::function<ExitCode(std::size_t)>& work);

}  // namespace ORVEL::TOOLS
