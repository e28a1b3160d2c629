#pragma once

#include <string>
#include <string_view>

namespace ORVEL::UTILS {

/**
 * The path as the file system takes it: on POSIX systems every backslash becomes a slash. Used only
 * where a file is opened; stored paths and messages keep their backslashes.
 */
std::string nativePath(std::string_view path);

// Parts of native paths. Not std::filesystem's: its paths do not survive a failed allocation.

/** The folder that the path lies in; "." for a name alone. */
std::string folderOf(std::string_view path);

/** The last part without its extension. */
std::string stemOf(std::string_view path);

bool isAbsolutePath(std::string_view path);

/** `path` seen from the folder; an absolute one stays as it is, and so does any path without a folder. */
std::string pathIn(std::string_view folder, std::string_view path);

/** Whether a part of the path is "..". */
bool leadsUp(std::string_view path);

}  // namespace ORVEL::UTILS
