#pragma once

#include <filesystem>

#include "tools/descriptor.h"

namespace ORVEL::TOOLS {

/**
 * A file that appears under its name only once it is complete. Until commit() its bytes have no name
 * at all, so that nothing is left whatever ends the program; on a file system without such files they
 * lie in a temporary file beside the target, which the destructor removes.
 */
class PendingFile {
 public:
  /**
   * @param force an existing regular file may be replaced.
   * @throws ToolError (kOutput) when the target exists and may not be replaced, is no regular file, or
   *         its directory cannot be written to.
   */
  PendingFile(const std::filesystem::path& target, bool force);
  PendingFile(const PendingFile&) = delete;
  PendingFile& operator=(const PendingFile&) = delete;
  ~PendingFile();

  int descriptor() const noexcept { return fd_.get(); }

  /**
   * Gives the file its name once its bytes are on the medium. @throws ToolError (kOutput), also when the
   * target has appeared since.
   */
  void commit();

 private:
  bool link(const std::filesystem::path& name);

  std::filesystem::path target_;
  std::filesystem::path temporary_;  // empty while the bytes have no name
  UniqueFd fd_;
  bool force_;
};

}  // namespace ORVEL::TOOLS
