#include "weights/control_file.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "utils/native_path.h"

namespace ORVEL::WEIGHTS {

namespace {

// A line takes many times its length in memory, and no model has more than some dozens of them.
constexpr std::uintmax_t kMostBytes = std::uintmax_t{1} << 20U;

bool isSpace(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

ControlEntry splitLine(const std::string& line) {
  const auto keyBegin = std::find_if_not(line.begin(), line.end(), isSpace);
  const auto keyEnd = std::find_if(keyBegin, line.end(), isSpace);
  const auto valueBegin = std::find_if_not(keyEnd, line.end(), isSpace);
  auto valueEnd = line.end();
  while (valueEnd != valueBegin && isSpace(*(valueEnd - 1))) {
    --valueEnd;
  }
  return {std::string(keyBegin, keyEnd), std::string(valueBegin, valueEnd)};
}

}  // namespace

std::optional<std::vector<ControlEntry>> readControlFile(const std::string& path) {
  const std::string native = UTILS::nativePath(path);
  std::error_code error;
  if (!UTILS::isRegularFile(native) || std::filesystem::file_size(native, error) > kMostBytes) {
    return std::nullopt;
  }
  std::ifstream file(native);
  if (!file.is_open()) {
    return std::nullopt;
  }
  std::vector<ControlEntry> entries;
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with('#') || std::all_of(line.begin(), line.end(), isSpace)) {
      continue;
    }
    ControlEntry entry = splitLine(line);
    if (entry.value.empty()) {
      return std::nullopt;
    }
    entries.push_back(std::move(entry));
  }
  return entries;
}

}  // namespace ORVEL::WEIGHTS
