// Models read by strict rules: whole and sound files only, and a reason for everything else.
#include <algorithm>
#include <array>

#include "utils/native_path.h"
#include "utils/regular_file.h"
#include "weights/model_store.h"

namespace ORVEL::WEIGHTS {

namespace {

[[noreturn]] void refuse(const std::string& label, const std::string& problem) {
  throw ModelError(label + ": " + problem);
}

/** What a control file says of its weight file; empty where it says nothing. */
struct NamedWeights {
  std::string file;
  std::string digest;
};

/** Fills in the keys of the model. @throws ModelError for a text that is not that of a control file. */
NamedWeights applyEntries(const std::string& label, std::string_view text, Model& model) {
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
  NamedWeights weights{{}, control.digest};
  for (const auto& [key, value] : control.entries) {
    if (key == "CONTROLFILE") {
      model.diagnostics.warnLine(label, ": CONTROLFILE is ignored");
    } else if (key == "WEIGHT" && !weights.file.empty()) {
      model.diagnostics.warnLine(label, ": a second WEIGHT is ignored");
    } else if (key == "WEIGHT") {
      weights.file = value;
    } else if (model.keys.set<std::string>(key, value, true) == nullptr) {
      refuse(label, "sets the key " + key + " twice");
    } else {
      model.diagnostics.note(label, ": ", key, " = ", value);
    }
  }
  return weights;
}

std::string findWeightFile(const std::string& label, const std::string& name,
                           const std::string& directory) {
  const std::string named = UTILS::nativePath(name);
  if (UTILS::leadsUp(named)) {
    refuse(label, "the weight file " + name +
                      " lies outside the folders of models (it is named with \"..\")");
  }
  const std::array places{UTILS::pathIn(UTILS::folderOf(label), named),
                          UTILS::pathIn(directory, named)};
  for (const std::string& place : places) {
    if (UTILS::fileExists(place)) {
      return place;
    }
  }
  refuse(label, "the weight file " + name + " is missing (looked for " + places[0] +
                    (places[0] == places[1] ? "" : " and " + places[1]) + ")");
}

}  // namespace

ModelFiles readModelFiles(const std::string& controlFile, const std::string& directory,
                          UTILS::Diagnostics& diagnostics) {
  const UTILS::FileContent control = UTILS::RegularFile(controlFile).read(kMostControlBytes);
  if (!control.problem.empty()) {
    refuse(controlFile, control.problem + " (control file)");
  }
  ModelFiles files{std::make_shared<Model>(diagnostics), {}};
  const NamedWeights named = applyEntries(controlFile, control.bytes, *files.model);
  if (named.file.empty()) {
    refuse(controlFile, "names no weight file (no WEIGHT entry)");
  }
  files.weightLabel = findWeightFile(controlFile, named.file, directory);
  const WeightFile weights = openWeightFile(files.weightLabel, named.digest);
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
  const NamedWeights named = applyEntries("the control text", control, *files.model);
  if (const std::string problem = problemOfDigest(weights, named.digest); !problem.empty()) {
    refuse(files.weightLabel, problem);
  }
  const auto weight = std::make_shared<Weight>();
  if (const std::string problem = weight->parse(weights); !problem.empty()) {
    refuse(files.weightLabel, problem);
  }
  files.model->weight = weight;
  return files;
}

}  // namespace ORVEL::WEIGHTS
