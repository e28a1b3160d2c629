#pragma once

#include <optional>
#include <string>
#include <vector>

namespace ORVEL::WEIGHTS {

/** One line of a control file. */
struct ControlEntry {
  std::string key;
  std::string value;
};

/**
 * Reads a control file: a key, white space and a value on each line; empty lines and lines whose first
 * character is "#" are skipped. The value may contain blanks.
 *
 * @return the entries in file order; nothing when the file cannot be opened, a line has no value, or the
 *         file is larger than a mebibyte.
 */
std::optional<std::vector<ControlEntry>> readControlFile(const std::string& path);

}  // namespace ORVEL::WEIGHTS
