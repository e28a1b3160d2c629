#pragma once

#include <string>
#include <string_view>

namespace ORVEL::UTILS {

/**
 * The path as the file system takes it: on POSIX systems every backslash becomes a slash. Used only
 * where a file is opened; stored paths and messages keep their backslashes.
 */
std::string nativePath(std::string_view path);

/** True when the path leads to a regular file: no directory, pipe or device, which could block. */
bool isRegularFile(const std::string& native);

}  // namespace ORVEL::UTILS
