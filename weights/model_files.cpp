// Models read by strict rules: whole and sound files only, and a reason for everything else.
#include <algorithm>
#include <array>
#include <filesystem>
#include <system_error>

#include "utils/native_path.h"
#include "weights/model_store.h"

namespace ORVEL::WEIGHTS {

namespace {

namespace fs = std::filesystem;

// A hundred times the largest network that runs in real time.
constexpr std::uint64_t kMostWeightBytes = std::uint64_t{1} << 30U;

[[noreturn]] void refuse(const std::string& label, const std::string& problem) {
  throw ModelError(label + ": " + problem);
}

/** Fills in the keys; gives the name of the weight file, empty where there is none. */
std::string applyEntries(const std::string& label, std::string_view text, Model& model) {
  if (text.size() > kMostControlBytes) {
    refuse(label, "is larger than " + std::to_string(kMostControlBytes >> 20U) + " MiB");
  }
  if (text.find('\0') != std::string_view::npos) {
    refuse(label, "is not a control file but binary (a weight file?)");
  }
  const ControlText control = parseControlText(text);
  if (!control.problem.empty()) {
    refuse(label, control.problem);
  }
  std::string weightFile;
  for (const auto& [key, value] : control.entries) {
    if (key == "CONTROLFILE") {
      model.diagnostics.warnLine(label, ": CONTROLFILE is ignored");
    } else if (key == "WEIGHT" && !weightFile.empty()) {
      model.diagnostics.warnLine(label, ": a second WEIGHT is ignored");
    } else if (key == "WEIGHT") {
      weightFile = value;
    } else if (model.keys.set<std::string>(key, value, true) == nullptr) {
      refuse(label, "sets the key " + key + " twice");
    } else {
      model.diagnostics.note(label, ": ", key, " = ", value);
    }
  }
  return weightFile;
}

bool liesIn(const fs::path& folder, const fs::path& file) {
  const fs::path way = file.lexically_relative(folder);
  return !way.empty() && *way.begin() != "..";
}

fs::path absoluteFolder(const fs::path& folder) {
  // A separator at the end would count as one more, empty, part.
  return fs::absolute(folder.empty() ? "." : folder).lexically_normal() / "";
}

std::string findWeightFile(const std::string& label, const std::string& name,
                           const std::string& directory) {
  const fs::path named(UTILS::nativePath(name));
  if (named.is_absolute()) {
    return named.string();
  }
  const std::array folders{absoluteFolder(fs::path(label).parent_path()),
                           absoluteFolder(directory)};
  bool leavesFolders = true;
  for (const fs::path& folder : folders) {
    const fs::path candidate = (folder / named).lexically_normal();
    if (!liesIn(folders[0], candidate) && !liesIn(folders[1], candidate)) {
      continue;
    }
    leavesFolders = false;
    std::error_code ignored;
    if (fs::exists(candidate, ignored)) {
      return candidate.string();
    }
  }
  if (leavesFolders) {
    refuse(label, "the weight file " + name +
                      " lies outside the folders of the control file and of "
                      "the models");
  }
  const std::string places = folders[0] == folders[1]
                                 ? folders[0].string()
                                 : folders[0].string() + " and " + folders[1].string();
  refuse(label, "the weight file " + name + " is missing (looked in " + places + ")");
}

}  // namespace

ModelFiles readModelFiles(const std::string& controlFile, const std::string& directory,
                          UTILS::Diagnostics& diagnostics) {
  const UTILS::FileContent control = UTILS::readFile(controlFile, kMostControlBytes);
  if (!control.problem.empty()) {
    refuse(controlFile, control.problem + " (control file)");
  }
  ModelFiles files{std::make_shared<Model>(diagnostics), {}};
  const std::string name = applyEntries(controlFile, control.bytes, *files.model);
  if (name.empty()) {
    refuse(controlFile, "names no weight file (no WEIGHT entry)");
  }
  files.weightLabel = findWeightFile(controlFile, name, directory);
  const WeightFile weights = openWeightFile(files.weightLabel, kMostWeightBytes);
  if (!weights.problem.empty()) {
    refuse(files.weightLabel, weights.problem);
  }
  diagnostics.note(controlFile, ": weights ", files.weightLabel);
  files.model->weight = weights.weight;
  return files;
}

ModelFiles readModelContent(std::string_view control, std::string_view weights,
                            UTILS::Diagnostics& diagnostics) {
  ModelFiles files{std::make_shared<Model>(diagnostics), "the weights in memory"};
  applyEntries("the control text", control, *files.model);
  const auto weight = std::make_shared<Weight>();
  if (const std::string problem = weight->parse(weights); !problem.empty()) {
    refuse(files.weightLabel, problem);
  }
  files.model->weight = weight;
  return files;
}

}  // namespace ORVEL::WEIGHTS
