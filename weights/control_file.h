#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ORVEL::WEIGHTS {

/** One line of a control file. */
struct ControlEntry {
  std::string key;
  std::string value;
};

/** A control file takes many times its length in memory, and no model has more than dozens of lines. */
inline constexpr std::size_t kMostControlBytes = std::size_t{1} << 20U;

/** The entries of a control file, or why there are none. */
struct ControlText {
  std::vector<ControlEntry> entries;
  /** Of the line "#SHA256 HEX", which is a comment to other readers; empty without one. */
  std::string digest;
  /** Such as "line 3: KEY has no value"; empty when the text is one of a control file. */
  std::string problem;
};

/**
 * Splits the text of a control file: a key, white space and a value on each line; empty lines and lines
 * whose first character is "#" are skipped, but the first of the form "#SHA256 HEX" gives the digest of
 * the weight file. The value may contain blanks. White space is that of the C locale.
 */
ControlText parseControlText(std::string_view text);

/**
 * Reads a control file.
 *
 * @return the entries in file order; nothing when the file cannot be read, a line has no value, or the
 *         file is larger than a mebibyte.
 */
std::optional<std::vector<ControlEntry>> readControlFile(const std::string& path);

}  // namespace ORVEL::WEIGHTS
