#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "noise_canceller/tuning_key_table.h"
#include "tools/commands.h"
#include "tools/descriptor.h"
#include "tools/model_report.h"
#include "tools/tool_error.h"

namespace ORVEL::TOOLS {
namespace {

namespace fs = std::filesystem;

// Names in files need not be UTF-8; the document has to be.
void printJson(const nlohmann::json& document) {
  print(document.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n");
}

}  // namespace

ExitCode info(const std::string& model, const std::optional<std::string>& directory, bool json,
              Console& console) {
  // A weight file is named as it is; control files and names as --model takes them.
  const bool isFile = fs::is_regular_file(model) || model.find('/') != std::string::npos ||
                      fs::path(model).extension() == ".bin";
  const ModelReport report = reportModel(isFile ? fs::path(model) : findModel(model, directory));
  if (json) {
    printJson(toJson(report));
  } else {
    print(toText(report));
  }
  if (!report.model) {
    console.error(model + ": the library does not take it: " + report.refusal);
    return ExitCode::kModel;
  }
  return ExitCode::kOk;
}

ExitCode listModels(const std::optional<std::string>& directory, bool json, Console& console) {
  const fs::path folder = findModelDirectory(directory);
  ExitCode code = ExitCode::kOk;
  nlohmann::json list = nlohmann::json::array();
  std::string text = folder.string() + "\n";
  orvel::Library library({}, messagesTo(console));
  for (const fs::path& file : controlFilesIn(folder)) {
    try {
      const orvel::Model model = loadModel(library, file, {});
      const bool cleans = model.kind == orvel::ModelKind::noiseCleaning;
      text += formatText("  %-20s %-10s %6d Hz %9llu weights  %s\n", model.name.c_str(),
                         model.version.c_str(), model.sampleRate,
                         static_cast<unsigned long long>(model.weights),
                         cleans ? "cleaning" : "voice activity");
      list.push_back({{"name", model.name},
                      {"kind", cleans ? "cleaning" : "voice activity"},
                      {"version", model.version},
                      {"sample_rate", model.sampleRate},
                      {"weights", model.weights}});
    } catch (const ToolError& error) {
      console.error(error.what());
      code = error.code();
    }
  }
  if (json) {
    printJson(list);
  } else {
    print(text);
  }
  return code;
}

ExitCode listKeys(bool json) {
  nlohmann::json list = nlohmann::json::array();
  std::string text;
  for (const NOISE_CANCELLER::TuningKey& key : NOISE_CANCELLER::tuningKeys()) {
    nlohmann::json names = nlohmann::json::array();
    nlohmann::json versions = nlohmann::json::array();
    std::string joined;
    for (const NOISE_CANCELLER::CleanerTraits* version : NOISE_CANCELLER::readersOf(key)) {
      const std::string name = NOISE_CANCELLER::fullName(key, *version);
      versions.push_back(version->version);
      if (std::find(names.begin(), names.end(), name) == names.end()) {
        names.push_back(name);
        joined.append(" ").append(name, std::string(key.stem).size());
      }
    }
    const std::string values = NOISE_CANCELLER::acceptedValues(key);
    list.push_back({{"stem", key.stem},
                    {"names", names},
                    {"versions", versions},
                    {"values", values},
                    {"unit", key.unit},
                    {"meaning", key.meaning}});
    text.append(key.stem).append(" ").append(joined).append("\n    ");
    text.append(values).append("\n    ").append(key.meaning).append("\n");
  }
  if (json) {
    printJson(list);
  } else {
    print(text);
  }
  return ExitCode::kOk;
}

}  // namespace ORVEL::TOOLS
