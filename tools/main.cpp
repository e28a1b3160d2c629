#include <CLI/CLI.hpp>
#include <cmath>
#include <exception>
#include <string>

#include "orvel_version.h"
#include "tools/clean_command.h"
#include "tools/console.h"
#include "tools/info_command.h"
#include "tools/interrupt.h"
#include "tools/raw_io.h"
#include "tools/standard_output.h"
#include "tools/vad_command.h"

namespace {

using namespace ORVEL::TOOLS;

constexpr const char* kFooter =
    R"(Models are looked for in --model-dir, else in $ORVEL_MODEL_DIR, else in
../share/orvel/models beside the program's directory, else in a models/ folder above it.

Exit codes:
  0    everything done
  1    unexpected failure inside the program
  2    wrong command line
  3    an input cannot be read
  4    an output cannot be written (or exists already)
  5    a model cannot be loaded or used
  6    several inputs, and at least one of them failed
  130  interrupted

Examples:
  orvel clean talk.wav talk-clean.wav
  orvel clean --out-dir cleaned --jobs 2 *.flac
  orvel clean --attenuation-limit 12 --set ORVEL_SMOOT_COEF_v0_0_5=0.8 in.wav out.wav
  arecord -t raw -f S16_LE -r 48000 | orvel clean --rate 48000 - - | aplay -t raw -f S16_LE -r 48000
  orvel vad --json meeting.ogg
  orvel info models/orvel-16k.ctl)";

struct Options {
  CleanOptions clean;
  VadOptions vad;
  std::string infoFile;
  bool json = false;
  bool csv = false;
  bool labels = false;
  bool verbose = false;
};

void addModelOptions(CLI::App& command, ModelOptions& options) {
  command.add_option("-m,--model", options.model,
                     "A model's name, or a control file (*.ctl); default: chosen by sample rate");
  command.add_option("--model-dir", options.directory, "Directory with the models");
  command
      .add_option("--set", options.settings,
                  "KEY=VALUE over the control file's tuning keys; may be repeated ('orvel keys')")
      ->take_all()
      ->allow_extra_args(false);
}

void addRawOptions(CLI::App& command, RawOptions& options) {
  constexpr int kMostChannels = 1024;
  command.add_option("--rate", options.rate, "Sample rate of raw audio ('-'), Hz")
      ->check(CLI::Range(1000, 768000));
  command.add_option("--channels", options.channels, "Channels of raw audio")
      ->check(CLI::Range(1, kMostChannels))
      ->capture_default_str();
  command.add_option("--format", options.format, "Raw samples: s16le, s24le, s32le or f32le")
      ->check(CLI::IsMember(kRawFormatNames))
      ->capture_default_str();
}

void addClean(CLI::App& app, Options& options) {
  CleanOptions& clean = options.clean;
  CLI::App* command =
      app.add_subcommand("clean", "Remove ambient noise: IN OUT, or IN... DIRECTORY");
  command->add_option("paths", clean.paths, "Inputs, then the output; '-' is raw audio")
      ->required();
  command->add_option("--out-dir", clean.outDirectory,
                      "Write every input's cleaned form into this directory");
  command->add_option("-j,--jobs", clean.jobs, "Inputs worked on at the same time")
      ->check(CLI::Range(1, 256))
      ->capture_default_str();
  command->add_flag("-f,--force", clean.force, "Replace an existing output");
  command
      ->add_option("--attenuation-limit", clean.attenuationLimitDb,
                   "Lower nothing by more than this many decibels")
      ->check(CLI::Range(0.0F, 1000.0F));
  addModelOptions(*command, clean.model);
  addRawOptions(*command, clean.raw);
}

void addVad(CLI::App& app, Options& options) {
  VadOptions& vad = options.vad;
  CLI::App* command = app.add_subcommand("vad", "List the stretches with speech");
  command->add_option("input", vad.input, "A sound file, or '-' for raw audio")->required();
  command->add_option("--threshold", vad.segments.threshold, "Speech begins at this score")
      ->capture_default_str();
  command->add_option("--neg-threshold", vad.segments.negativeThreshold,
                      "Speech ends below this score; default: threshold - 0.15");
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
  command->add_flag("--labels", options.labels, "Print an Audacity label track")
      ->excludes(json)
      ->excludes(csv);
  addModelOptions(*command, vad.model);
  addRawOptions(*command, vad.raw);
}

void addInfo(CLI::App& app, Options& options) {
  CLI::App* info = app.add_subcommand("info", "Show what a model or weight file holds");
  info->add_option("file", options.infoFile, "A control file (*.ctl) or a weight file")->required();
  info->add_flag("--json", options.json, "Print JSON");
  CLI::App* models = app.add_subcommand("models", "List the installed models");
  models->add_option("--model-dir", options.clean.model.directory, "Directory with the models");
  models->add_flag("--json", options.json, "Print JSON");
  CLI::App* keys = app.add_subcommand("keys", "List the tuning keys that --set takes");
  keys->add_flag("--json", options.json, "Print JSON");
}

ExitCode run(const CLI::App& app, Options& options, const StandardOutput& output,
             Console& console) {
  if (app.got_subcommand("clean")) return clean(options.clean, output, console);
  if (app.got_subcommand("vad")) {
    if (options.json) options.vad.style = ReportStyle::json;
    if (options.csv) options.vad.style = ReportStyle::csv;
    if (options.labels) options.vad.style = ReportStyle::labels;
    return vad(options.vad, output, console);
  }
  if (app.got_subcommand("info")) return info(options.infoFile, options.json, output, console);
  if (app.got_subcommand("models")) {
    return listModels(options.clean.model.directory, options.json, output, console);
  }
  return listKeys(options.json, output);
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Removes ambient noise from speech and finds where somebody speaks.", "orvel");
  Options options;
  app.set_version_flag("--version", "orvel " ORVEL_VERSION);
  app.footer(kFooter);
  app.require_subcommand(1);
  app.fallthrough();
  app.add_flag("-v,--verbose", options.verbose, "Say what is done, in the library's words too");
  addClean(app, options);
  addVad(app, options);
  addInfo(app, options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    const bool wanted = error.get_exit_code() == 0;  // --help, --version
    app.exit(error);
    return static_cast<int>(wanted ? ExitCode::ok : ExitCode::usage);
  }

  watchSignals();
  Console console(options.verbose);
  try {
    const StandardOutput output;
    return static_cast<int>(run(app, options, output, console));
  } catch (const ToolError& error) {
    console.error(error.what());
    return static_cast<int>(error.code());
  } catch (const std::exception& error) {
    console.error(error.what());
    return static_cast<int>(ExitCode::internal);
  }
}
