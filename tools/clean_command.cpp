#include "tools/clean_command.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <memory>
#include <optional>
#include <thread>
#include <utility>

#include "tools/engine.h"
#include "tools/interrupt.h"
#include "tools/model_catalog.h"
#include "tools/open_source.h"
#include "tools/progress.h"
#include "tools/raw_io.h"
#include "tools/sound_file.h"
#include "tools/sound_format.h"
#include "tools/stream_cleaner.h"

namespace ORVEL::TOOLS {
namespace {

constexpr std::size_t kBlockFrames = 4096;

struct Context {
  const CleanOptions& options;
  const StandardOutput& standardOutput;
  Console& console;
  Engine& engine;
  Progress& progress;
};

std::unique_ptr<AudioSink> openSink(const std::string& path, const AudioSource& source,
                                    const Context& context) {
  const RawOptions& raw = context.options.raw;
  if (path == kStream) {
    return std::make_unique<RawWriter>(context.standardOutput.descriptor(), "standard output",
                                       rawFormat(raw.format));
  }
  const auto* file = dynamic_cast<const SoundFileReader*>(&source);
  const int like =
      file != nullptr ? file->format() : SF_FORMAT_WAV | soundFileEncoding(rawFormat(raw.format));
  const AudioSpec spec = source.spec();
  auto writer = std::make_unique<SoundFileWriter>(
      path, outputFormat(like, path, spec, source.claimedFrames().value_or(0)), spec,
      context.options.force);
  if (file != nullptr) writer->copyDescription(*file);
  return writer;
}

std::string describe(const CleanJob& job, const AudioSpec& spec, const StreamCleaner& cleaner) {
  std::array<char, 160> text{};
  std::snprintf(text.data(), text.size(),
                ": %d Hz, %d channel%s, cleaned at %d Hz, lag of %.2f samples taken out",
                spec.sampleRate, spec.channels, spec.channels == 1 ? "" : "s",
                cleaner.sessionRate(),
                cleaner.sessionDelay().samples + cleaner.sessionDelay().fraction);
  return job.input + text.data();
}

void run(const CleanJob& job, const Context& context) {
  const auto source = openSource(job.input, context.options.raw);
  const AudioSpec spec = source->spec();
  const auto sink = openSink(job.output, *source, context);
  const auto channels = static_cast<std::size_t>(spec.channels);

  std::vector<float> input(kBlockFrames * channels);
  std::vector<float> output;
  // Opened at the first samples: a file that claims channels and holds no audio costs nothing.
  std::optional<StreamCleaner> cleaner;
  while (const std::size_t frames = source->read(input)) {
    throwIfInterrupted();
    if (!cleaner) {
      cleaner.emplace(context.engine, spec, context.options.attenuationLimitDb);
      context.console.detail(describe(job, spec, *cleaner));
    }
    output.clear();
    cleaner->push(std::span(input).first(frames * channels), output);
    sink->write(output);
    context.progress.add(static_cast<double>(frames) / spec.sampleRate);
  }
  throwIfInterrupted();
  output.clear();
  if (cleaner) cleaner->finish(output);
  sink->write(output);
  sink->commit();
  if (const auto* raw = dynamic_cast<const RawReader*>(source.get()); raw && raw->leftover() > 0) {
    context.console.warning(job.input + ": " + std::to_string(raw->leftover()) +
                            " bytes at the end made no whole sample and were dropped");
  }
}

// Runs one job; an error is shown and its exit code given back.
ExitCode runReported(const CleanJob& job, const Context& context) {
  try {
    run(job, context);
    return ExitCode::ok;
  } catch (const ToolError& error) {
    if (error.code() != ExitCode::interrupted) context.console.error(error.what());
    return error.code();
  } catch (const std::exception& error) {
    context.console.error(job.input + ": " + error.what());
    return ExitCode::internal;
  }
}

std::vector<ExitCode> runAll(const std::vector<CleanJob>& jobs, const Context& context) {
  std::vector<ExitCode> codes(jobs.size(), ExitCode::interrupted);
  std::atomic<std::size_t> next{0};
  const auto work = [&] {
    for (std::size_t i = next++; i < jobs.size() && !interrupted(); i = next++) {
      codes[i] = runReported(jobs[i], context);
    }
  };
  const std::size_t workers =
      std::min(jobs.size(), static_cast<std::size_t>(std::max(context.options.jobs, 1)));
  std::vector<std::jthread> threads;
  for (std::size_t i = 1; i < workers; ++i)
    threads.emplace_back(work);
  work();
  threads.clear();
  return codes;
}

// Seconds of audio in all inputs, as far as their headers tell without being read.
std::optional<double> totalSeconds(const std::vector<CleanJob>& jobs) {
  double total = 0.0;
  for (const CleanJob& job : jobs) {
    if (job.input == kStream) return std::nullopt;
    try {
      const SoundFileReader reader(job.input);
      total += static_cast<double>(*reader.claimedFrames()) / reader.spec().sampleRate;
    } catch (const ToolError&) {
      continue;  // reported when its turn comes
    }
  }
  return total;
}

}  // namespace

ExitCode clean(const CleanOptions& options, const StandardOutput& standardOutput,
               Console& console) {
  const std::vector<CleanJob> jobs = pairJobs(options);
  std::vector<Setting> settings;
  for (const std::string& argument : options.model.settings)
    settings.push_back(parseSetting(argument));
  Engine engine(chooseModels(options.model.model, options.model.directory, ModelKind::noise),
                settings, console);
  const std::string label = jobs.size() == 1 ? "cleaning " + jobs.front().input
                                             : "cleaning " + std::to_string(jobs.size()) + " files";
  Progress progress(console, label, console.terminal() ? totalSeconds(jobs) : std::nullopt);
  const std::vector<ExitCode> codes =
      runAll(jobs, {options, standardOutput, console, engine, progress});
  const std::string summary = progress.summary();
  console.status("");
  if (interrupted()) throw ToolError(ExitCode::interrupted, "interrupted");

  const auto failed =
      codes.size() - static_cast<std::size_t>(std::count(codes.begin(), codes.end(), ExitCode::ok));
  if (failed == 0 && (console.terminal() || console.verbose())) console.text("cleaned " + summary);
  if (jobs.size() == 1) return codes.front();
  if (failed > 0) {
    console.error(std::to_string(failed) + " of " + std::to_string(jobs.size()) + " inputs failed");
  }
  return failed > 0 ? ExitCode::someFailed : ExitCode::ok;
}

}  // namespace ORVEL::TOOLS
