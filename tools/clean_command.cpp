#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <system_error>

#include "tools/aligned_cleaner.h"
#include "tools/commands.h"
#include "tools/tool_error.h"

namespace ORVEL::TOOLS {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kBlockFrames = 4096;

// One input and where its cleaned form goes.
struct Job {
  std::string input;
  std::string output;
};

struct Context {
  const CleanOptions& options;
  const ModelSet& models;
  Console& console;
  Progress& progress;
};

[[noreturn]] void refuse(const std::string& reason) { throw ToolError(ExitCode::kUsage, reason); }

std::vector<Job> intoDirectory(const std::vector<std::string>& inputs, const fs::path& directory) {
  std::vector<Job> jobs;
  std::set<fs::path> outputs;
  for (const std::string& input : inputs) {
    if (isStream(input)) {
      refuse("'" + input + "' cannot be written into a directory: name an output file");
    }
    const fs::path output = directory / fs::path(input).filename();
    if (!outputs.insert(output).second) {
      refuse("two inputs would both become '" + output.string() + "'");
    }
    jobs.push_back({input, output.string()});
  }
  return jobs;
}

std::vector<Job> withoutOutDirectory(std::vector<std::string> inputs) {
  if (inputs.size() < 2) {
    refuse("an input and an output are needed: orvel clean IN OUT");
  }
  const std::string output = inputs.back();
  inputs.pop_back();
  std::error_code ignored;
  if (fs::is_directory(output, ignored)) {
    return intoDirectory(inputs, output);
  }
  if (inputs.size() > 1) {
    refuse("several inputs need a directory for the outputs: '" + output + "' is none");
  }
  return {{inputs.front(), output}};
}

// Pairs inputs with outputs; creates the directory of --out-dir.
std::vector<Job> pairJobs(const CleanOptions& options) {
  auto jobs = options.outDirectory ? intoDirectory(options.paths, *options.outDirectory)
                                   : withoutOutDirectory(options.paths);
  for (const Job& job : jobs) {
    std::error_code ignored;
    if (!isStream(job.input) && fs::equivalent(job.input, job.output, ignored)) {
      refuse(job.input + ": is input and output at once");
    }
  }
  std::error_code error;
  if (options.outDirectory && !fs::create_directories(*options.outDirectory, error) &&
      !fs::is_directory(*options.outDirectory)) {
    throw ToolError(ExitCode::kOutput,
                    "--out-dir: cannot create '" + *options.outDirectory +
                        "': " + (error ? error.message() : "it is not a directory"));
  }
  return jobs;
}

std::string describe(const Job& job, const AudioSpec& spec, const orvel::Model& model,
                     const AlignedCleaner& cleaner) {
  return job.input + formatText(
                         ": %d Hz, %d channel%s, cleaned by %s (%d Hz) at %d Hz, lag of %.2f "
                         "samples taken out",
                         spec.sampleRate, spec.channels, spec.channels == 1 ? "" : "s",
                         model.name.c_str(), model.sampleRate, cleaner.sessionRate(),
                         cleaner.lag());
}

ExitCode run(const Job& job, const Context& context) {
  const auto source = openSource(job.input, context.options.stream);
  const AudioSpec spec = source->spec();
  const auto sink = openSink(job.output, *source, context.options.stream, context.options.force);
  const auto channels = static_cast<std::size_t>(spec.channels);

  std::vector<float> input(kBlockFrames * channels);
  std::vector<float> output;
  // Opened at the first samples: a file that claims channels and holds no audio costs nothing.
  std::optional<AlignedCleaner> cleaner;
  while (const std::size_t frames = source->read(input)) {
    throwIfInterrupted();
    if (!cleaner) {
      const orvel::Model& model = context.models.forRate(spec.sampleRate);
      cleaner.emplace(context.models.library(),
                      CleanerSetup{spec, model.name, context.options.attenuationLimitDb});
      context.console.detail(describe(job, spec, model, *cleaner));
    }
    output.clear();
    cleaner->push(std::span(input).first(frames * channels), output);
    sink->write(output);
    context.progress.add(static_cast<double>(frames) / spec.sampleRate);
  }
  throwIfInterrupted();
  const std::string shortfall = source->shortfall();
  if (!shortfall.empty() && !cleaner) {
    throw ToolError(ExitCode::kInput, source->name() + ": " + shortfall);
  }
  output.clear();
  if (cleaner) {
    cleaner->finish(output);
  }
  sink->write(output);
  sink->commit();
  if (const std::string remark = source->remark(); !remark.empty()) {
    context.console.warning(source->name() + ": " + remark);
  }
  if (!shortfall.empty()) {
    context.console.error(source->name() + ": " + shortfall + "; cleaned what there is");
    return ExitCode::kInput;
  }
  return ExitCode::kOk;
}

// Seconds of audio in all inputs, as far as their headers tell without being read.
std::optional<double> totalSeconds(const std::vector<Job>& jobs, const StreamOptions& options) {
  double total = 0.0;
  for (const Job& job : jobs) {
    if (isStream(job.input)) {
      return std::nullopt;
    }
    try {
      const auto source = openSource(job.input, options);
      const auto frames = source->claimedFrames();
      if (!frames) {
        return std::nullopt;
      }
      total += static_cast<double>(*frames) / source->spec().sampleRate;
    } catch (const ToolError&) {
      continue;  // reported when its turn comes
    }
  }
  return total;
}

}  // namespace

ExitCode clean(const CleanOptions& options, Console& console) {
  const std::vector<Job> jobs = pairJobs(options);
  const ModelSet models(options.model, orvel::ModelKind::noiseCleaning, console);
  const std::string label = jobs.size() == 1 ? "cleaning " + jobs.front().input
                                             : "cleaning " + std::to_string(jobs.size()) + " files";
  Progress progress(console, label,
                    console.showsStatus() ? totalSeconds(jobs, options.stream) : std::nullopt);
  std::vector<std::string> names;
  names.reserve(jobs.size());
  for (const Job& job : jobs) {
    names.push_back(job.input);
  }
  const Context context{options, models, console, progress};
  const ExitCode code =
      runBatch(names, options.jobs, console, [&](std::size_t i) { return run(jobs[i], context); });
  if (code == ExitCode::kOk) {
    console.summary("cleaned " + progress.summary());
  }
  return code;
}

}  // namespace ORVEL::TOOLS
