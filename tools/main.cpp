#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "orvel/orv_version.h"
#include "tools/commands.h"
#include "tools/completion.h"
#include "tools/descriptor.h"
#include "tools/stream_format.h"
#include "tools/tool_error.h"

namespace {

using namespace ORVEL::TOOLS;

constexpr const char* kFooter =
    R"(Exit codes:
  0    everything done
  1    unexpected failure inside the program
  2    wrong command line
  3    an input cannot be read, or ends early (what there is was worked on)
  4    an output cannot be written, or exists already
  5    a model cannot be loaded or used
  6    several inputs, and at least one of them failed
  130  interrupted)";

constexpr const char* kCleanFooter =
    R"(Examples:
  orvel clean talk.wav talk-clean.wav
  orvel clean --out-dir cleaned --jobs 2 *.flac
  orvel clean --attenuation-limit 12 --set ORVEL_SMOOT_COEF_v0_0_5=0.8 in.wav out.wav
  ffmpeg -i call.m4a -f wav - | orvel clean - call.flac
  arecord -t raw -f S16_LE -r 48000 | orvel clean --rate 48000 - - | aplay -t raw -f S16_LE -r 48000)";

constexpr const char* kVadFooter =
    R"(Examples:
  orvel vad meeting.ogg
  orvel vad --json --min-silence 500 meeting.ogg
  orvel vad --rttm --jobs 2 *.wav > speech.rttm)";

constexpr const char* kReportFooter =
    R"(Examples:
  orvel report noisy.wav -o report.html
  orvel report noisy.wav clean.wav -o report.html
  orvel report --start 60 --duration 30 meeting.ogg -o report.html)";

constexpr const char* kCompletionFooter =
    R"(Examples:
  orvel completion bash > ~/.local/share/bash-completion/completions/orvel
  orvel completion zsh > "${fpath[1]}/_orvel"
  orvel completion fish > ~/.config/fish/completions/orvel.fish)";

constexpr const char* kModelPlaces =
    "Folder of the models; default: $ORVEL_MODEL_DIR, else ../share/orvel/models beside the "
    "program's folder, else a models/ folder above it";

struct Options {
  CleanOptions clean;
  VadOptions vad;
  ReportCommandOptions report;
  std::string model;
  std::string shell;
  std::optional<std::string> directory;
  bool json = false;
  bool csv = false;
  bool labels = false;
  bool rttm = false;
  bool verbose = false;
  bool quiet = false;
};

// Beside the numbers out of the range this refuses NaN, which CLI::Range lets pass.
CLI::Validator within(double least, double most) {
  const std::string range = CLI::detail::to_string(least) + " to " + CLI::detail::to_string(most);
  return {[least, most, range](std::string& text) {
            double value = 0.0;
            const bool good =
                CLI::detail::lexical_cast(text, value) && value >= least && value <= most;
            return good ? std::string() : "'" + text + "' is not a number from " + range;
          },
          "(" + range + ")", "within"};
}

void addModelOptions(CLI::App& command, ModelOptions& options) {
  command.add_option("-m,--model", options.model,
                     "A model's name, a control file (*.ctl), or 'auto' (chosen by sample rate, "
                     "damaged ones passed over); default: chosen by sample rate");
  command.add_option("--model-dir", options.directory, kModelPlaces);
  command
      .add_option("--set", options.settings,
                  "KEY=VALUE over the control file's tuning keys; may be repeated ('orvel keys')")
      ->take_all()
      ->allow_extra_args(false);
}

void addStreamOptions(CLI::App& command, StreamOptions& options) {
  command.add_option("--rate", options.rate, "Sample rate of samples without a header, Hz")
      ->check(CLI::Range(1000, 768000));
  command.add_option("--channels", options.channels, "Channels of samples without a header")
      ->check(CLI::Range(1, 1024))
      ->capture_default_str();
  command
      .add_option("--format", options.format, "Samples without a header, in and out; default s16le")
      ->check(CLI::IsMember(kSampleFormatNames));
}

void addJobs(CLI::App& command, int& jobs) {
  command.add_option("-j,--jobs", jobs, "Threads that work on the inputs")
      ->check(CLI::Range(1, 256))
      ->capture_default_str();
}

void addClean(CLI::App& app, Options& options) {
  CleanOptions& clean = options.clean;
  CLI::App* command =
      app.add_subcommand("clean", "Remove ambient noise: IN OUT, or IN... DIRECTORY");
  command->footer(kCleanFooter);
  command
      ->add_option("paths", clean.paths,
                   "Inputs, then the output; '-' and pipes: WAV, or samples without a header")
      ->required();
  command->add_option("--out-dir", clean.outDirectory,
                      "Write every input's cleaned form into this folder, created if needed");
  addJobs(*command, clean.jobs);
  command->add_flag("-f,--force", clean.force, "Replace an existing output");
  command
      ->add_option("--attenuation-limit", clean.attenuationLimitDb,
                   "Lower nothing by more than this many decibels")
      ->check(within(0.0, 1000.0));
  command
      ->add_option("--container", clean.stream.container,
                   "What goes out on '-' and pipes; default raw")
      ->check(CLI::IsMember({"raw", "wav"}));
  addModelOptions(*command, clean.model);
  addStreamOptions(*command, clean.stream);
}

void addVad(CLI::App& app, Options& options) {
  VadOptions& vad = options.vad;
  CLI::App* command = app.add_subcommand("vad", "List the stretches with speech");
  command->footer(kVadFooter);
  command->add_option("inputs", vad.inputs, "Sound files; '-' and pipes as for clean")->required();
  addJobs(*command, vad.jobs);
  command->add_option("--threshold", vad.segments.threshold, "Speech begins at this score")
      ->check(within(0.0, 1.0))
      ->capture_default_str();
  command
      ->add_option("--neg-threshold", vad.segments.negativeThreshold,
                   "Speech ends below this score; default: threshold - 0.05")
      ->check(within(0.0, 1.0));
  const CLI::Range milliseconds(0, 3600000);
  command->add_option("--min-speech", vad.segments.minimumSpeechMs, "Drop shorter speech, ms")
      ->check(milliseconds)
      ->capture_default_str();
  command->add_option("--min-silence", vad.segments.minimumSilenceMs, "Bridge shorter pauses, ms")
      ->check(milliseconds)
      ->capture_default_str();
  command->add_option("--padding", vad.segments.paddingMs, "Widen segments at both ends, ms")
      ->check(milliseconds)
      ->capture_default_str();
  command->add_flag("--frames", vad.frames, "Print the score of every 10 ms instead of segments");
  CLI::Option* json = command->add_flag("--json", options.json, "Print JSON");
  CLI::Option* csv = command->add_flag("--csv", options.csv, "Print CSV")->excludes(json);
  CLI::Option* rttm =
      command->add_flag("--rttm", options.rttm, "Print RTTM")->excludes(json)->excludes(csv);
  command->add_flag("--labels", options.labels, "Print an Audacity label track")
      ->excludes(json)
      ->excludes(csv)
      ->excludes(rttm);
  addModelOptions(*command, vad.model);
  addStreamOptions(*command, vad.stream);
}

void addReport(CLI::App& app, Options& options) {
  ReportCommandOptions& report = options.report;
  CLI::App* command = app.add_subcommand(
      "report", "Write a page that shows and plays a recording before and after");
  command->footer(kReportFooter);
  command->add_option("noisy", report.noisy, "The recording")->required();
  command->add_option("cleaned", report.cleaned,
                      "Its cleaned form, of the same rate and length; default: it is cleaned here");
  command->add_option("-o,--output", report.output, "The page (HTML)")->required();
  command->add_option("--start", report.start, "Begin so many seconds into the recording")
      ->check(within(0.0, 1e6))
      ->capture_default_str();
  command->add_option("--duration", report.duration, "Show so many seconds, up to 300")
      ->check(within(0.1, 300.0));
  command->add_flag("-f,--force", report.force, "Replace an existing page");
  command
      ->add_option("--attenuation-limit", report.attenuationLimitDb,
                   "Lower nothing by more than this many decibels")
      ->check(within(0.0, 1000.0));
  addModelOptions(*command, report.model);
}

void addInfo(CLI::App& app, Options& options) {
  CLI::App* info = app.add_subcommand("info", "Show what a model or weight file holds");
  info->add_option("model", options.model, "A model's name, a control file or a weight file")
      ->required();
  CLI::App* models = app.add_subcommand("models", "List the installed models");
  CLI::App* keys = app.add_subcommand("keys", "List the tuning keys that --set takes");
  for (CLI::App* command : {info, models}) {
    command->add_option("--model-dir", options.directory, kModelPlaces);
  }
  for (CLI::App* command : {info, models, keys}) {
    command->add_flag("--json", options.json, "Print JSON");
  }
}

void addCompletion(CLI::App& app, Options& options) {
  CLI::App* command =
      app.add_subcommand("completion", "Print a script that completes this command in a shell");
  command->footer(kCompletionFooter);
  command->add_option("shell", options.shell, "The shell")
      ->required()
      ->check(CLI::IsMember(std::vector<std::string>(std::begin(kShells), std::end(kShells))));
}

std::size_t editDistance(const std::string& one, const std::string& other) {
  std::vector<std::size_t> row(other.size() + 1);
  for (std::size_t j = 0; j < row.size(); ++j) {
    row[j] = j;
  }
  for (std::size_t i = 1; i <= one.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i);
    for (std::size_t j = 1; j < row.size(); ++j) {
      const std::size_t replaced = diagonal + (one[i - 1] == other[j - 1] ? 0 : 1);
      diagonal = row[j];
      row[j] = std::min({replaced, row[j] + 1, row[j - 1] + 1});
    }
  }
  return row.back();
}

// The first word that is no option has to be a command.
void requireCommand(const CLI::App& app, const std::vector<std::string>& words) {
  const auto word = std::find_if(words.begin(), words.end(),
                                 [](const std::string& text) { return !text.starts_with('-'); });
  if (word == words.end()) {
    return;
  }
  std::string list;
  std::string nearest;
  std::size_t least = 3;  // farther is no slip of the keys
  for (const CLI::App* command : app.get_subcommands({})) {
    list += (list.empty() ? "" : ", ") + command->get_name();
    const std::size_t distance = editDistance(*word, command->get_name());
    if (distance == 0) {
      return;
    }
    if (distance < least) {
      least = distance;
      nearest = command->get_name();
    }
  }
  throw ToolError(ExitCode::kUsage,
                  "no command '" + *word + "'; " +
                      (nearest.empty() ? "there are: " + list : "did you mean '" + nearest + "'?"));
}

ExitCode run(const CLI::App& app, Options& options, Console& console) {
  if (app.got_subcommand("clean")) {
    return clean(options.clean, console);
  }
  if (app.got_subcommand("vad")) {
    options.vad.style = options.json     ? ReportStyle::kJson
                        : options.csv    ? ReportStyle::kCsv
                        : options.labels ? ReportStyle::kLabels
                        : options.rttm   ? ReportStyle::kRttm
                                         : ReportStyle::kText;
    return vad(options.vad, console);
  }
  if (app.got_subcommand("report")) {
    return report(options.report, console);
  }
  if (app.got_subcommand("info")) {
    return info(options.model, options.directory, options.json, console);
  }
  if (app.got_subcommand("completion")) {
    print(completionScript(app, options.shell));
    return ExitCode::kOk;
  }
  if (app.got_subcommand("models")) {
    return listModels(options.directory, options.json, console);
  }
  return listKeys(options.json);
}

Verbosity verbosity(const Options& options) {
  return options.quiet     ? Verbosity::kQuiet
         : options.verbose ? Verbosity::kVerbose
                           : Verbosity::kNormal;
}

int runCommand(int argc, char** argv) {
  fillStandardStreams();
  watchSignals();
  CLI::App app("Removes ambient noise from speech and detects voice activity.", "orvel");
  Options options;
  app.set_version_flag("--version", "orvel " ORV_VERSION_STRING);
  app.require_subcommand(1);
  app.fallthrough();
  CLI::Option* verbose =
      app.add_flag("-v,--verbose", options.verbose, "Say what is done, in the library's words too");
  app.add_flag("-q,--quiet", options.quiet, "Errors only: no progress, no warnings")
      ->excludes(verbose);
  addClean(app, options);
  addVad(app, options);
  addReport(app, options);
  addInfo(app, options);
  addCompletion(app, options);
  app.footer(kFooter);  // after the commands, which would take it over
  try {
    requireCommand(app, {argv + 1, argv + argc});
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    const bool wanted = error.get_exit_code() == 0;  // --help, --version
    app.exit(error);
    if (!std::cout.flush()) {
      Console(Verbosity::kNormal).error("standard output: writing failed");
      return static_cast<int>(ExitCode::kOutput);
    }
    return static_cast<int>(wanted ? ExitCode::kOk : ExitCode::kUsage);
  } catch (const ToolError& error) {
    Console(Verbosity::kNormal).error(error.what());
    return static_cast<int>(error.code());
  }

  Console console(verbosity(options));
  try {
    const ExitCode code = run(app, options, console);
    // Some file systems report only here that what was written found no room.
    if (::close(STDOUT_FILENO) != 0) {
      throw ToolError(ExitCode::kOutput,
                      "standard output: closing failed: " + systemMessage(errno));
    }
    return static_cast<int>(code);
  } catch (const ToolError& error) {
    console.error(error.what());
    return static_cast<int>(error.code());
  } catch (const ClosedPipe&) {
    console.status("");
    endByClosedPipe();
  } catch (const std::exception& error) {
    console.error(error.what());
    return static_cast<int>(ExitCode::kInternal);
  }
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return runCommand(argc, argv);
  } catch (const std::exception& error) {
    // Without memory: not even a message can be put together.
    std::fprintf(stderr, "orvel: %s\n", error.what());
    return static_cast<int>(ExitCode::kInternal);
  }
}
