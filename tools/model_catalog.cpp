#include "tools/model_catalog.h"

#include <algorithm>
#include <cstdlib>
#include <system_error>

#include "tools/tool_error.h"

namespace ORVEL::TOOLS {
namespace {

namespace fs = std::filesystem;

constexpr const char* kExtension = ".ctl";
constexpr const char* kVariable = "ORVEL_MODEL_DIR";

const std::vector<std::string>& defaultNames(ModelKind kind) {
  static const std::vector<std::string> noise = {"orvel-16k", "orvel-32k", "orvel-8k"};
  static const std::vector<std::string> voice = {"orvel-vad"};
  return kind == ModelKind::noise ? noise : voice;
}

fs::path programDirectory() {
  std::error_code error;
  const fs::path program = fs::read_symlink("/proc/self/exe", error);
  return error ? fs::path() : program.parent_path();
}

bool holdsModels(const fs::path& directory) { return !controlFilesIn(directory).empty(); }

ModelSet singleFile(const fs::path& file) {
  if (!fs::is_regular_file(file)) {
    throw ToolError(ExitCode::model, file.string() + ": no such control file");
  }
  const fs::path directory = file.has_parent_path() ? file.parent_path() : fs::path(".");
  return {directory, {file.filename().string()}, false};
}

}  // namespace

std::vector<std::string> controlFilesIn(const fs::path& directory) {
  std::vector<std::string> names;
  std::error_code error;
  for (fs::directory_iterator entry(directory, error), end; !error && entry != end;
       entry.increment(error)) {
    std::error_code ignored;
    if (entry->path().extension() == kExtension && entry->is_regular_file(ignored)) {
      names.push_back(entry->path().filename().string());
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

fs::path findModelDirectory(const std::optional<std::string>& given) {
  const auto existing = [](const std::string& path, const std::string& origin) {
    if (!fs::is_directory(path)) {
      throw ToolError(ExitCode::model, origin + ": '" + path + "' is not a directory");
    }
    return fs::path(path);
  };
  if (given) return existing(*given, "--model-dir");
  const char* variable = std::getenv(kVariable);
  if (variable != nullptr && *variable != '\0') return existing(variable, kVariable);

  std::string tried;
  fs::path directory = programDirectory();
  if (!directory.empty()) {
    fs::path installed = directory.parent_path() / "share" / "orvel" / "models";
    if (holdsModels(installed)) return installed;
    tried = "\n  " + installed.string();
    // A build lies a few folders below the source tree's root.
    constexpr int kLevels = 4;
    for (int level = 0; level < kLevels && directory.has_relative_path(); ++level) {
      directory = directory.parent_path();
      if (holdsModels(directory / "models")) return directory / "models";
      tried += "\n  " + (directory / "models").string();
    }
  }
  throw ToolError(
      ExitCode::model,
      "no models found; name their directory with --model-dir or ORVEL_MODEL_DIR. Tried:" + tried);
}

ModelSet chooseModels(const std::optional<std::string>& model,
                      const std::optional<std::string>& directory, ModelKind kind) {
  if (model) {
    const bool isPath =
        model->find('/') != std::string::npos || fs::path(*model).extension() == kExtension;
    if (isPath) return singleFile(*model);
    const fs::path folder = findModelDirectory(directory);
    if (!fs::is_regular_file(folder / (*model + kExtension))) {
      throw ToolError(ExitCode::model, "no model '" + *model + "' in '" + folder.string() +
                                           "'; 'orvel models' lists them");
    }
    return singleFile(folder / (*model + kExtension));
  }
  ModelSet set{findModelDirectory(directory), {}, true};
  for (const std::string& name : defaultNames(kind)) {
    const std::string file = name + kExtension;
    if (fs::is_regular_file(set.directory / file)) set.controlFiles.push_back(file);
  }
  if (set.controlFiles.empty()) set.controlFiles = controlFilesIn(set.directory);
  if (set.controlFiles.empty()) {
    throw ToolError(ExitCode::model,
                    "no control files (*.ctl) in '" + set.directory.string() + "'");
  }
  return set;
}

}  // namespace ORVEL::TOOLS
