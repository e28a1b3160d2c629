#include <algorithm>
#include <cmath>
#include <memory>
#include <utility>

#include "tools/commands.h"
#include "tools/descriptor.h"
#include "tools/tool_error.h"
#include "tools/voice_scorer.h"

namespace ORVEL::TOOLS {
namespace {

constexpr std::size_t kBlockFrames = 4096;

struct Context {
  const VadOptions& options;
  const ReportOptions& report;
  const ModelSet& models;
  Console& console;
  Progress& progress;
};

ExitCode run(const std::string& input, const Context& context, const VadReport::Write& write) {
  const auto source = openSource(input, context.options.stream);
  const AudioSpec spec = source->spec();
  // Whole lines go out once per block of input: a reader of a live stream sees them at once.
  std::string text;
  const auto report =
      makeReport(context.report, source->name(), [&](const std::string& piece) { text += piece; });
  const auto flush = [&] { write(std::exchange(text, {})); };
  Segmenter segmenter(context.options.segments,
                      [&](const Segment& segment) { report->segment(segment); });
  std::int64_t scores = 0;
  VoiceScorer scorer(context.models, spec, [&](double score) {
    if (context.options.frames) {
      report->frame(static_cast<double>(scores++ * kScoreMs) / 1000.0, score);
    } else {
      segmenter.push(score);
    }
  });
  const auto channels = static_cast<std::size_t>(spec.channels);
  std::vector<float> block(kBlockFrames * channels);
  std::size_t frames = source->read(block);
  if (frames == 0 && !source->shortfall().empty()) {
    throw ToolError(ExitCode::kInput, source->name() + ": " + source->shortfall());
  }
  report->begin();
  for (; frames > 0; frames = source->read(block)) {
    throwIfInterrupted();
    scorer.push(std::span(block).first(frames * channels));
    flush();
    context.progress.add(static_cast<double>(frames) / spec.sampleRate);
  }
  throwIfInterrupted();
  scorer.finish();
  if (!context.options.frames) {
    segmenter.finish(scorer.seconds());
  }
  report->end(scorer.seconds());
  flush();
  if (const std::string remark = source->remark(); !remark.empty()) {
    context.console.warning(source->name() + ": " + remark);
  }
  if (const std::string shortfall = source->shortfall(); !shortfall.empty()) {
    context.console.error(source->name() + ": " + shortfall + "; scored what there is");
    return ExitCode::kInput;
  }
  return ExitCode::kOk;
}

void check(const VadOptions& options) {
  const auto refuse = [](const char* reason) { throw ToolError(ExitCode::kUsage, reason); };
  const SegmentOptions& segments = options.segments;
  if (segments.negativeThreshold.value_or(segments.threshold) > segments.threshold) {
    refuse("--neg-threshold must not be above --threshold");
  }
  if (options.frames && options.style == ReportStyle::kRttm) {
    refuse("--rttm: holds segments; --frames cannot go with it");
  }
  if (options.inputs.size() > 1 && options.style == ReportStyle::kLabels) {
    refuse("--labels: a label track is of one input");
  }
}

std::optional<double> secondsOf(const std::string& input, const StreamOptions& options) {
  if (isStream(input)) {
    return std::nullopt;
  }
  try {
    const auto source = openSource(input, options);
    const auto frames = source->claimedFrames();
    return frames ? std::optional(static_cast<double>(*frames) / source->spec().sampleRate)
                  : std::nullopt;
  } catch (const ToolError&) {
    return 0.0;  // reported when its turn comes
  }
}

}  // namespace

ExitCode vad(const VadOptions& options, Console& console) {
  check(options);
  const ModelSet models(options.model, orvel::ModelKind::voiceActivity, console);
  std::optional<double> total = 0.0;
  for (const std::string& input : options.inputs) {
    const auto seconds = console.showsStatus() ? secondsOf(input, options.stream) : std::nullopt;
    total = total && seconds ? std::optional(*total + *seconds) : std::nullopt;
  }
  const std::size_t count = options.inputs.size();
  Progress progress(
      console,
      "scoring " + (count == 1 ? options.inputs.front() : std::to_string(count) + " files"), total);
  const ReportOptions report{options.style, options.frames, count > 1};
  const Context context{options, report, models, console, progress};
  OrderedOutput output(report, count, print);
  const ExitCode code = runBatch(options.inputs, options.jobs, console, [&](std::size_t i) {
    const auto write = [&](const std::string& text) { output.write(i, text); };
    try {
      const ExitCode result = run(options.inputs[i], context, write);
      output.finish(i);
      return result;
    } catch (...) {
      output.finish(i);  // the others go on
      throw;
    }
  });
  output.end();
  if (code == ExitCode::kOk) {
    console.detail("scored " + progress.summary());
  }
  return code;
}

}  // namespace ORVEL::TOOLS
