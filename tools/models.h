#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "orvel/orvel.hpp"
#include "tools/console.h"

namespace ORVEL::TOOLS {

/** Which models are used. */
struct ModelOptions {
  std::optional<std::string> model;      ///< a name, a control file's path, or "auto"
  std::optional<std::string> directory;  ///< of the models
  std::vector<std::string> settings;     ///< KEY=VALUE
};

/**
 * The directory of installed models: the given one, else the environment's ORVEL_MODEL_DIR, else
 * ../share/orvel/models beside the program's directory, else a models/ folder in a directory above
 * the program (a build in the source tree).
 *
 * @throws ToolError (kModel) naming every place that was tried.
 */
std::filesystem::path findModelDirectory(const std::optional<std::string>& given);

/** Paths of the control files in a directory, sorted. @throws ToolError (kModel) when it cannot be listed. */
std::vector<std::filesystem::path> controlFilesIn(const std::filesystem::path& directory);

/**
 * The control file meant by a model's name in the model directory or by a path (has a slash or ends in
 * ".ctl").
 * @throws ToolError (kModel) when there is none.
 */
std::filesystem::path findModel(const std::string& model,
                                const std::optional<std::string>& directory);

/** Hands a library's warnings to the user; what it echoes while loading is shown when verbose. Errors
 * come as exceptions. */
orvel::MessageHandler messagesTo(Console& console);

/**
 * Loads a control file's model under its stem, with settings put over its tuning keys.
 * @throws ToolError (kModel) with the file and the library's reason.
 */
orvel::Model loadModel(orvel::Library& library, const std::filesystem::path& controlFile,
                       const std::vector<std::string>& settings);

/** The models that recordings are worked on with. */
class ModelSet {
 public:
  /**
   * Loads the model that is named, or those to choose from: the default models of the kind when the
   * directory has them, everything of the kind there otherwise.
   *
   * @throws ToolError (kUsage) for a setting that is none, (kModel) when a model cannot be loaded or a
   *         default one is not of the kind. With "auto" such a one is passed over with a warning.
   */
  ModelSet(const ModelOptions& options, orvel::ModelKind kind, Console& console);

  const orvel::Library& library() const noexcept { return library_; }
  /** The model whose rate is nearest to the recording's without being above it, else the one of the
   * lowest rate; the one that was named, whatever its rate. */
  const orvel::Model& forRate(int audioRate) const;

 private:
  void load(const std::filesystem::path& file, const std::vector<std::string>& settings,
            bool mustBeOfTheKind, Console& console);

  orvel::ModelKind kind_;
  orvel::Library library_;
  std::vector<orvel::Model> models_;  // in order of preference
};

}  // namespace ORVEL::TOOLS
