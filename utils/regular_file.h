#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <tuple>

#include "utils/non_copyable.h"

namespace ORVEL::UTILS {

/** Tells a file and its content from every other: it changes when the file is written again. */
struct FileIdentity {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::int64_t size = 0;
  std::int64_t modified = 0;  // ns
  std::int64_t changed = 0;   // ns

  bool operator<(const FileIdentity& other) const {
    const auto values = [](const FileIdentity& file) {
      return std::tie(file.device, file.inode, file.size, file.modified, file.changed);
    };
    return values(*this) < values(other);
  }
};

/** The content of a file, or why there is none. */
struct FileContent {
  std::string bytes;
  /** Such as "is not a regular file"; empty when the file was read. */
  std::string problem;
};

/**
 * A file opened for reading. Pipes, directories and devices, which could block, are refused without being
 * opened. Throws nothing but for want of memory.
 */
class RegularFile : private NonCopyMovable {
 public:
  explicit RegularFile(const std::string& native);
  ~RegularFile();

  /** Why the file is not open; empty when it is. */
  const std::string& problem() const { return problem_; }

  /**
   * Nothing for a file that is not open or was written a moment ago: writing it once more could then leave
   * the identity as it is.
   */
  std::optional<FileIdentity> identity() const;

  /** All of it, unless it has more bytes than that. */
  FileContent read(std::uint64_t mostBytes) const;

 private:
  int descriptor_ = -1;
  FileIdentity status_;
  std::string problem_;
};

/** Whether there is a file of any kind at the path. */
bool fileExists(const std::string& native);

}  // namespace ORVEL::UTILS
