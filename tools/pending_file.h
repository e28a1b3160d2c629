#pragma once

#include <filesystem>

#include "tools/unique_fd.h"

namespace ORVEL::TOOLS {

/**
 * A file that appears under its name only once it is complete: bytes go to a temporary file in the
 * same directory, which commit() renames and the destructor otherwise removes.
 */
class PendingFile {
 public:
  /**
   * @param force an existing regular file may be replaced.
   * @throws ToolError (output) when the target exists and may not be replaced, is no regular file, or
   *         its directory cannot be written to.
   */
  PendingFile(const std::filesystem::path& target, bool force);
  PendingFile(const PendingFile&) = delete;
  PendingFile& operator=(const PendingFile&) = delete;
  ~PendingFile();

  int descriptor() const noexcept { return fd_.get(); }

  /** Gives the file its name. @throws ToolError (output), also when the target has appeared since. */
  void commit();

 private:
  std::filesystem::path target_;
  std::filesystem::path temporary_;
  UniqueFd fd_;
  bool force_;
};

}  // namespace ORVEL::TOOLS
