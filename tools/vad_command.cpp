#include "tools/vad_command.h"

#include <memory>
#include <utility>
#include <vector>

#include "tools/engine.h"
#include "tools/interrupt.h"
#include "tools/model_catalog.h"
#include "tools/open_source.h"
#include "tools/progress.h"
#include "tools/vad_stream.h"

namespace ORVEL::TOOLS {
namespace {

constexpr std::size_t kBlockFrames = 4096;

void check(const SegmentOptions& options) {
  const double negative = options.negativeThreshold.value_or(options.threshold);
  if (negative > options.threshold) {
    throw ToolError(ExitCode::usage, "--neg-threshold must not be above --threshold");
  }
}

}  // namespace

ExitCode vad(const VadOptions& options, const StandardOutput& standardOutput, Console& console) {
  check(options.segments);
  const auto source = openSource(options.input, options.raw);
  const AudioSpec spec = source->spec();
  std::vector<Setting> settings;
  for (const std::string& argument : options.model.settings)
    settings.push_back(parseSetting(argument));
  Engine engine(
      chooseModels(options.model.model, options.model.directory, ModelKind::voiceActivity),
      settings, console);

  // Whole lines go out once per block of input: a reader of a live stream sees them at once.
  std::string text;
  const auto report =
      makeReport(options.style, source->name(), [&](const std::string& piece) { text += piece; });
  const auto flush = [&] { standardOutput.write(std::exchange(text, {})); };

  Segmenter segmenter(options.segments, [&](const Segment& segment) { report->segment(segment); });
  std::int64_t scores = 0;
  VadStream stream(engine, spec, [&](double score) {
    if (options.frames) {
      report->frame(static_cast<double>(scores++ * kScoreMs) / 1000.0, score);
    } else {
      segmenter.push(score);
    }
  });

  std::optional<double> total;
  if (const auto frames = source->claimedFrames()) {
    total = static_cast<double>(*frames) / spec.sampleRate;
  }
  Progress progress(console, "listening to " + options.input, total);
  report->begin();
  std::vector<float> block(kBlockFrames * static_cast<std::size_t>(spec.channels));
  while (const std::size_t frames = source->read(block)) {
    throwIfInterrupted();
    stream.push(std::span(block).first(frames * static_cast<std::size_t>(spec.channels)));
    flush();
    progress.add(static_cast<double>(frames) / spec.sampleRate);
  }
  throwIfInterrupted();
  stream.finish();
  if (!options.frames) segmenter.finish(stream.seconds());
  report->end(stream.seconds());
  flush();
  console.detail("scored " + progress.summary());
  return ExitCode::ok;
}

}  // namespace ORVEL::TOOLS
