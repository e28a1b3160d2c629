#include "weights/control_file.h"

#include "utils/native_path.h"
#include "utils/regular_file.h"

namespace ORVEL::WEIGHTS {

namespace {

constexpr std::string_view kBlanks = " \t\n\v\f\r";
constexpr std::string_view kDigestMark = "#SHA256 ";

std::string_view trimmed(std::string_view text) {
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string_view::npos) {
    return {};
  }
  return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

}  // namespace

ControlText parseControlText(std::string_view text) {
  ControlText result;
  for (std::size_t number = 1; !text.empty(); ++number) {
    const std::size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    const std::string_view entry = trimmed(line);
    if (result.digest.empty() && line.starts_with(kDigestMark)) {
      result.digest = trimmed(line.substr(kDigestMark.size()));
    }
    if (entry.empty() || line.front() == '#') {
      continue;
    }
    const std::size_t keyEnd = entry.find_first_of(kBlanks);
    if (keyEnd == std::string_view::npos) {
      result.entries.clear();
      result.problem = "line " + std::to_string(number) + ": " + std::string(entry.substr(0, 60)) +
                       " has no value";
      return result;
    }
    result.entries.push_back(
        {std::string(entry.substr(0, keyEnd)), std::string(trimmed(entry.substr(keyEnd)))});
  }
  return result;
}

std::optional<std::vector<ControlEntry>> readControlFile(const std::string& path) {
  const UTILS::FileContent file =
      UTILS::RegularFile(UTILS::nativePath(path)).read(kMostControlBytes);
  if (!file.problem.empty()) {
    return std::nullopt;
  }
  ControlText text = parseControlText(file.bytes);
  if (!text.problem.empty()) {
    return std::nullopt;
  }
  return std::move(text.entries);
}

}  // namespace ORVEL::WEIGHTS
