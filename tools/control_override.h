#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "tools/tuning_keys.h"

namespace ORVEL::TOOLS {

/** A directory only its owner can enter, removed with everything in it at destruction. */
class PrivateDirectory {
 public:
  PrivateDirectory();  ///< @throws ToolError (output)
  PrivateDirectory(const PrivateDirectory&) = delete;
  PrivateDirectory& operator=(const PrivateDirectory&) = delete;
  ~PrivateDirectory();
  const std::filesystem::path& path() const noexcept { return path_; }

 private:
  std::filesystem::path path_;
};

/**
 * Writes a copy of a control file in which the settings replace or extend its keys; of a key that is
 * set twice the last value counts.
 *
 * @throws ToolError (model) when the control file cannot be read, (output) when the copy cannot be
 *         written.
 */
void writeOverridden(const std::filesystem::path& controlFile, const std::vector<Setting>& settings,
                     const std::filesystem::path& copy);

}  // namespace ORVEL::TOOLS
