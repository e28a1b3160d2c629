#include <algorithm>
#include <exception>
#include <filesystem>
#include <map>
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

// An input on its way through a cleaner, block by block.
class Cleaning {
 public:
  Cleaning(const Job& job, const Context& context)
      : job_(job),
        context_(context),
        source_(openSource(job.input, context.options.stream)),
        sink_(openSink(job.output, *source_, context.options.stream, context.options.force)),
        input_(kBlockFrames * static_cast<std::size_t>(source_->spec().channels)) {}

  // The next block, which is to be cleaned; none at the end.
  std::optional<orvel::StreamCleaner::Block> read() {
    const AudioSpec spec = source_->spec();
    const std::size_t frames = source_->read(input_);
    throwIfInterrupted();
    if (frames == 0) {
      return std::nullopt;
    }
    // Opened at the first samples: a file that claims channels and holds no audio costs nothing.
    if (!cleaner_) {
      const orvel::Model& model = context_.models.forRate(spec.sampleRate);
      cleaner_.emplace(context_.models.library(),
                       CleanerSetup{spec, model.name, context_.options.attenuationLimitDb});
      context_.console.detail(describe(job_, spec, model, *cleaner_));
    }
    seconds_ = static_cast<double>(frames) / spec.sampleRate;
    return cleaner_->push(
        std::span(input_).first(frames * static_cast<std::size_t>(spec.channels)));
  }

  // The cleaned block.
  void write() {
    output_.clear();
    cleaner_->collect(output_);
    sink_->write(output_);
    context_.progress.add(seconds_);
  }

  ExitCode finish() {
    const std::string shortfall = source_->shortfall();
    if (!shortfall.empty() && !cleaner_) {
      throw ToolError(ExitCode::kInput, source_->name() + ": " + shortfall);
    }
    output_.clear();
    if (cleaner_) {
      cleaner_->finish(output_);
    }
    sink_->write(output_);
    sink_->commit();
    if (const std::string remark = source_->remark(); !remark.empty()) {
      context_.console.warning(source_->name() + ": " + remark);
    }
    if (!shortfall.empty()) {
      context_.console.error(source_->name() + ": " + shortfall + "; cleaned what there is");
      return ExitCode::kInput;
    }
    return ExitCode::kOk;
  }

 private:
  const Job& job_;
  const Context& context_;
  std::unique_ptr<AudioSource> source_;
  std::unique_ptr<AudioSink> sink_;
  std::vector<float> input_;
  std::vector<float> output_;
  std::optional<AlignedCleaner> cleaner_;
  double seconds_ = 0.0;
};

// Cleans several inputs at once, a block of each in turn: their frames share the model's weights.
void cleanTogether(Inputs& inputs, const std::vector<Job>& jobs, std::size_t most,
                   const Context& context) {
  std::map<std::size_t, std::unique_ptr<Cleaning>> open;
  while (true) {
    while (open.size() < most) {
      const auto i = inputs.next();
      if (!i) {
        break;
      }
      if (!inputs.attempt(*i, [&] { open[*i] = std::make_unique<Cleaning>(jobs[*i], context); })) {
        open.erase(*i);
      }
    }
    if (open.empty()) {
      return;
    }
    std::vector<orvel::StreamCleaner::Block> blocks;
    std::erase_if(open, [&](const auto& entry) {
      const std::size_t i = entry.first;
      bool ended = false;
      const bool succeeded = inputs.attempt(i, [&, i, &each = *entry.second] {
        if (const auto block = each.read()) {
          blocks.push_back(*block);
          return;
        }
        ended = true;
        inputs.done(i, each.finish());
      });
      return ended || !succeeded;
    });
    std::exception_ptr failure;
    try {
      orvel::StreamCleaner::process(blocks);
    } catch (...) {
      failure = std::current_exception();
    }
    std::erase_if(open, [&](const auto& entry) {
      return !inputs.attempt(entry.first, [&] {
        if (failure != nullptr) {
          std::rethrow_exception(failure);
        }
        entry.second->write();
      });
    });
  }
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
  // Inputs that a thread works on at once; every thread has some.
  constexpr std::size_t kMostAtOnce = 16;
  const auto threads = static_cast<std::size_t>(std::max(options.jobs, 1));
  const std::size_t most =
      std::clamp((jobs.size() + threads - 1) / threads, std::size_t{1}, kMostAtOnce);
  const ExitCode code = runBatch(names, options.jobs, console, [&](Inputs& inputs) {
    cleanTogether(inputs, jobs, most, context);
  });
  if (code == ExitCode::kOk) {
    console.summary("cleaned " + progress.summary());
  }
  return code;
}

}  // namespace ORVEL::TOOLS
