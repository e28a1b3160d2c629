#include "tools/models.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <map>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "noise_canceller/tuning_key_table.h"
#include "tools/tool_error.h"
#include "utils/regular_file.h"
#include "weights/control_file.h"
#include "weights/weight.h"

namespace ORVEL::TOOLS {
namespace {

namespace fs = std::filesystem;

constexpr const char* kExtension = ".ctl";
constexpr const char* kVariable = "ORVEL_MODEL_DIR";
constexpr const char* kAutomatic = "auto";

[[noreturn]] void fail(const std::string& text) { throw ToolError(ExitCode::kModel, text); }

fs::path programDirectory() {
  std::error_code error;
  const fs::path program = fs::read_symlink("/proc/self/exe", error);
  return error ? fs::path() : program.parent_path();
}

// Paths of the control files in a directory, sorted; `error` says why it cannot be listed.
std::vector<fs::path> listControlFiles(const fs::path& directory, std::error_code& error) {
  std::vector<fs::path> files;
  for (fs::directory_iterator entry(directory, error), end; !error && entry != end;
       entry.increment(error)) {
    std::error_code ignored;
    if (entry->path().extension() == kExtension && entry->is_regular_file(ignored)) {
      files.push_back(entry->path());
    }
  }
  std::sort(files.begin(), files.end());
  return files;
}

[[noreturn]] void failToList(const fs::path& directory, const std::error_code& error) {
  fail("cannot list the models in '" + directory.string() + "': " + error.message());
}

// A place that is not there or not ours to read holds none; any other failure is said.
bool holdsModels(const fs::path& directory) {
  std::error_code error;
  const bool found = !listControlFiles(directory, error).empty();
  if (error && error != std::errc::no_such_file_or_directory &&
      error != std::errc::not_a_directory && error != std::errc::permission_denied) {
    failToList(directory, error);
  }
  return found;
}

// A link to nowhere and a folder count as well: loading them says what is wrong.
bool isThere(const fs::path& path) {
  std::error_code ignored;
  return fs::exists(fs::symlink_status(path, ignored));
}

std::string contents(const fs::path& file) {
  UTILS::FileContent content = UTILS::RegularFile(file.string()).read(WEIGHTS::kMostWeightBytes);
  if (!content.problem.empty()) {
    throw std::runtime_error(file.string() + ": " + content.problem);
  }
  return std::move(content.bytes);
}

// Control files of the default models that are there.
std::vector<fs::path> defaultModelsIn(const fs::path& directory, orvel::ModelKind kind) {
  const std::vector<std::string> names =
      kind == orvel::ModelKind::noiseCleaning
          ? std::vector<std::string>{"orvel-16k", "orvel-32k", "orvel-8k"}
          : std::vector<std::string>{"orvel-vad"};
  std::vector<fs::path> files;
  for (const std::string& name : names) {
    if (isThere(directory / (name + kExtension))) {
      files.push_back(directory / (name + kExtension));
    }
  }
  return files;
}

const char* nameOf(orvel::ModelKind kind) {
  return kind == orvel::ModelKind::noiseCleaning ? "cleaning" : "voice activity";
}

using Settings = std::map<std::string, std::string>;

// KEY=VALUE taken apart; of a key that is set twice the last value counts.
Settings parseSettings(const std::vector<std::string>& arguments) {
  const auto isSpace = [](unsigned char c) { return std::isspace(c) != 0; };
  Settings settings;
  for (const std::string& argument : arguments) {
    const auto refuse = [&](const char* reason) {
      throw ToolError(ExitCode::kUsage,
                      std::string("--set '").append(argument).append("': ").append(reason));
    };
    const std::size_t equals = argument.find('=');
    if (equals == std::string::npos) {
      refuse("is not KEY=VALUE");
    }
    const std::string key = argument.substr(0, equals);
    const std::string value = argument.substr(equals + 1);
    if (key.empty() || key.front() == '#' || std::any_of(key.begin(), key.end(), isSpace)) {
      refuse("the key must be one word and must not begin with '#'");
    }
    if (key == "WEIGHT" || key == "CONTROLFILE") {
      refuse("use --model to choose a model");
    }
    if (std::all_of(value.begin(), value.end(), isSpace)) {
      refuse("the value is empty");
    }
    if (value.find_first_of("\r\n") != std::string::npos) {
      refuse("the value has a line end");
    }
    settings[key] = value;
  }
  return settings;
}

orvel::Model loadWithSettings(orvel::Library& library, const fs::path& file,
                              const Settings& settings) {
  const WEIGHTS::ControlText control = [&] {
    try {
      return WEIGHTS::parseControlText(contents(file));
    } catch (const std::runtime_error& error) {
      fail(error.what());
    }
  }();
  if (!control.problem.empty()) {
    fail(file.string() + ": not a control file: " + control.problem);
  }
  std::string text;
  fs::path weights;
  for (const WEIGHTS::ControlEntry& entry : control.entries) {
    if (entry.key == "WEIGHT" && weights.empty()) {
      std::string path = entry.value;
      std::replace(path.begin(), path.end(), '\\', '/');
      if (*fs::path(path).lexically_normal().begin() == "..") {
        fail(file.string() + ": the weight file " + path +
             " lies outside the control file's folder");
      }
      weights = file.parent_path() / path;
    } else if (!settings.contains(entry.key)) {
      text.append(entry.key).append(" ").append(entry.value).append("\n");
    }
  }
  if (weights.empty()) {
    fail(file.string() + ": names no weight file (no WEIGHT line)");
  }
  if (!control.digest.empty()) {
    text.append("#SHA256 ").append(control.digest).append("\n");
  }
  for (const auto& [key, value] : settings) {
    text.append(key).append(" ").append(value).append("\n");
  }
  try {
    const std::string bytes = contents(weights);
    return library.loadModelFromMemory(text, std::as_bytes(std::span(bytes)), file.stem().string());
  } catch (const orvel::Error& error) {
    fail(file.string() + ": " + weights.string() + ": " + error.what());
  } catch (const std::runtime_error& error) {
    fail(file.string() + ": " + error.what());
  }
}

}  // namespace

std::vector<fs::path> controlFilesIn(const fs::path& directory) {
  std::error_code error;
  std::vector<fs::path> files = listControlFiles(directory, error);
  if (error) {
    failToList(directory, error);
  }
  return files;
}

fs::path findModelDirectory(const std::optional<std::string>& given) {
  const auto existing = [](const std::string& path, const std::string& origin) {
    if (!fs::is_directory(path)) {
      fail(origin + ": '" + path + "' is not a directory");
    }
    return fs::path(path);
  };
  if (given) {
    return existing(*given, "--model-dir");
  }
  const char* variable = std::getenv(kVariable);
  if (variable != nullptr && *variable != '\0') {
    return existing(variable, kVariable);
  }
  std::string tried;
  fs::path directory = programDirectory();
  if (!directory.empty()) {
    fs::path installed = directory.parent_path() / "share" / "orvel" / "models";
    if (holdsModels(installed)) {
      return installed;
    }
    tried = "\n  " + installed.string();
    // A build lies a few folders below the source tree's root.
    constexpr int kLevels = 4;
    for (int level = 0; level < kLevels && directory.has_relative_path(); ++level) {
      directory = directory.parent_path();
      if (holdsModels(directory / "models")) {
        return directory / "models";
      }
      tried += "\n  " + (directory / "models").string();
    }
  }
  fail("no models found; name their directory with --model-dir or ORVEL_MODEL_DIR. Tried:" + tried);
}

fs::path findModel(const std::string& model, const std::optional<std::string>& directory) {
  if (model.find('/') != std::string::npos || fs::path(model).extension() == kExtension) {
    if (!fs::is_regular_file(model)) {
      fail(model + ": no such control file");
    }
    return model;
  }
  const fs::path folder = findModelDirectory(directory);
  fs::path file = folder / (model + kExtension);
  if (!fs::is_regular_file(file)) {
    fail("no model '" + model + "' in '" + folder.string() + "'; 'orvel models' lists them");
  }
  return file;
}

orvel::MessageHandler messagesTo(Console& console) {
  return [&console](orvel::Severity severity, std::string_view text) {
    if (severity == orvel::Severity::warning) {
      console.warning(std::string(text));
    } else if (severity == orvel::Severity::info) {
      console.detail(std::string(text));
    }
  };
}

orvel::Model loadModel(orvel::Library& library, const fs::path& controlFile,
                       const std::vector<std::string>& settings) {
  const Settings parsed = parseSettings(settings);
  try {
    return parsed.empty() ? library.loadModel(fs::absolute(controlFile).string())
                          : loadWithSettings(library, controlFile, parsed);
  } catch (const orvel::Error& error) {
    fail(controlFile.string() + ": model not loaded: " + error.what());
  }
}

ModelSet::ModelSet(const ModelOptions& options, orvel::ModelKind kind, Console& console)
    : kind_(kind), library_({}, messagesTo(console)) {
  for (const auto& [key, value] : parseSettings(options.settings)) {
    if (NOISE_CANCELLER::findTuningKey(key) == nullptr) {
      console.warning("--set " + key + ": no cleaner reads this key; 'orvel keys' lists them");
    }
  }
  if (options.model && options.model != kAutomatic) {
    load(findModel(*options.model, options.directory), options.settings, true, console);
    return;
  }
  const fs::path directory = findModelDirectory(options.directory);
  std::vector<fs::path> files = defaultModelsIn(directory, kind);
  const bool defaults = !files.empty();
  if (!defaults) {
    files = controlFilesIn(directory);
  }
  if (files.empty()) {
    fail("no control files (*.ctl) in '" + directory.string() + "'");
  }
  for (const fs::path& file : files) {
    try {
      load(file, options.settings, defaults, console);
    } catch (const ToolError& error) {
      if (!options.model) {
        fail(std::string(error.what()) +
             "\n  (--model auto does without it; --model NAME takes another)");
      }
      console.warning("passed over: " + std::string(error.what()));
    }
  }
  if (models_.empty()) {
    fail(std::string("no model for ") + nameOf(kind) + " could be loaded");
  }
}

void ModelSet::load(const fs::path& file, const std::vector<std::string>& settings,
                    bool mustBeOfTheKind, Console& console) {
  const orvel::Model model = loadModel(library_, file, settings);
  if (model.kind == kind_) {
    models_.push_back(model);
    console.detail("loaded " + file.string());
  } else if (mustBeOfTheKind) {
    fail(file.string() + ": the model is for " + nameOf(model.kind) + ", not for " + nameOf(kind_));
  }
}

const orvel::Model& ModelSet::forRate(int audioRate) const {
  const auto better = [audioRate](const orvel::Model& one, const orvel::Model& other) {
    const bool oneFits = one.sampleRate <= audioRate;
    const bool otherFits = other.sampleRate <= audioRate;
    if (oneFits != otherFits) {
      return oneFits;
    }
    return oneFits ? one.sampleRate > other.sampleRate : one.sampleRate < other.sampleRate;
  };
  return *std::min_element(models_.begin(), models_.end(), better);
}

}  // namespace ORVEL::TOOLS
