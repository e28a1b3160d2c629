#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>

namespace ORVEL::UTILS {

/**
 * The path as the file system takes it: on POSIX systems every backslash becomes a slash. Used only
 * where a file is opened; stored paths and messages keep their backslashes.
 */
std::string nativePath(std::string_view path);

/** True when the path leads to a regular file: no directory, pipe or device, which could block. */
bool isRegularFile(const std::string& native);

/** Tells a file and its content from every other: it changes when the file is written again. */
struct FileIdentity {
  std::string canonicalPath;
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::uint64_t size = 0;
  std::int64_t modified = 0;
  std::int64_t changed = 0;

  bool operator<(const FileIdentity& other) const {
    const auto values = [](const FileIdentity& file) {
      return std::tie(file.canonicalPath, file.device, file.inode, file.size, file.modified,
                      file.changed);
    };
    return values(*this) < values(other);
  }
};

/**
 * The identity of a regular file; nothing when there is none, or when the file was written a moment ago:
 * writing it once more could then leave the identity as it is.
 */
std::optional<FileIdentity> identifyFile(const std::string& native);

/** The content of a file, or why there is none. */
struct FileContent {
  std::string bytes;
  /** Such as "is not a regular file"; empty when the file was read. */
  std::string problem;
};

/** Reads a regular file of at most so many bytes; throws nothing but for want of memory. */
FileContent readFile(const std::string& native, std::uint64_t mostBytes);

}  // namespace ORVEL::UTILS
