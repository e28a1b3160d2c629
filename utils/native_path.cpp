#include "utils/native_path.h"

#include <algorithm>

namespace ORVEL::UTILS {

std::string nativePath(std::string_view path) {
  std::string native(path);
#ifndef _WIN32
  std::replace(native.begin(), native.end(), '\\', '/');
#endif
  return native;
}

std::string folderOf(std::string_view path) {
  const std::size_t end = path.rfind('/');
  if (end == std::string_view::npos) {
    return ".";
  }
  return std::string(path.substr(0, std::max<std::size_t>(end, 1)));
}

std::string stemOf(std::string_view path) {
  const std::string_view name = path.substr(path.rfind('/') + 1);
  const std::size_t end = name.rfind('.');
  return std::string(name.substr(0, end == 0 ? name.size() : end));
}

bool isAbsolutePath(std::string_view path) { return path.starts_with('/'); }

std::string pathIn(std::string_view folder, std::string_view path) {
  std::string whole;
  if (!folder.empty() && !isAbsolutePath(path)) {
    whole.append(folder).append(folder.ends_with('/') ? "" : "/");
  }
  return whole.append(path);
}

bool leadsUp(std::string_view path) {
  while (true) {
    const std::size_t end = path.find('/');
    if (path.substr(0, end) == "..") {
      return true;
    }
    if (end == std::string_view::npos) {
      return false;
    }
    path.remove_prefix(end + 1);
  }
}

}  // namespace ORVEL::UTILS
