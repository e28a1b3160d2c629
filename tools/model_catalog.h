#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace ORVEL::TOOLS {

/** Which models to load, and whether the library picks one of them by rate. */
struct ModelSet {
  std::filesystem::path directory;        ///< where control and weight files lie
  std::vector<std::string> controlFiles;  ///< file names in the directory, in order of preference
  bool automatic = false;                 ///< several candidates: the library chooses
};

enum class ModelKind { noise, voiceActivity };

/**
 * The directory of installed models: the given one, else the environment's ORVEL_MODEL_DIR, else
 * ../share/orvel/models beside the program's directory, else a models/ folder in a directory above
 * the program (a build in the source tree).
 *
 * @throws ToolError (model) naming every place that was tried.
 */
std::filesystem::path findModelDirectory(const std::optional<std::string>& given);

/** Names of the control files in a directory, sorted. */
std::vector<std::string> controlFilesIn(const std::filesystem::path& directory);

/**
 * The models meant by --model and --model-dir.
 *
 * @param model a name in the model directory or the path of a control file (has a slash or ends in
 *        ".ctl"); nothing for the automatic choice, which takes the default models of the kind when
 *        the directory has them and everything there otherwise.
 * @throws ToolError (model)
 */
ModelSet chooseModels(const std::optional<std::string>& model,
                      const std::optional<std::string>& directory, ModelKind kind);

}  // namespace ORVEL::TOOLS
