#include "utils/native_path.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace ORVEL::UTILS {

std::string nativePath(std::string_view path) {
  std::string native(path);
#ifndef _WIN32
  std::replace(native.begin(), native.end(), '\\', '/');
#endif
  return native;
}

bool isRegularFile(const std::string& native) {
  std::error_code error;
  return std::filesystem::is_regular_file(std::filesystem::path(native), error);
}

}  // namespace ORVEL::UTILS
