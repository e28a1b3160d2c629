#include "utils/native_path.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <system_error>

#ifndef _WIN32
#include <sys/stat.h>
#endif

namespace ORVEL::UTILS {

namespace fs = std::filesystem;

std::string nativePath(std::string_view path) {
  std::string native(path);
#ifndef _WIN32
  std::replace(native.begin(), native.end(), '\\', '/');
#endif
  return native;
}

bool isRegularFile(const std::string& native) {
  std::error_code error;
  return fs::is_regular_file(fs::path(native), error);
}

std::optional<FileIdentity> identifyFile(const std::string& native) {
  // Longer than the steps in which file systems and kernels count time.
  constexpr auto kMoment = std::chrono::milliseconds(50);
  std::error_code error;
  FileIdentity identity{.canonicalPath = fs::canonical(native, error).string()};
  if (error || !fs::is_regular_file(native, error)) {
    return std::nullopt;
  }
  const fs::file_time_type written = fs::last_write_time(native, error);
  if (error || written > fs::file_time_type::clock::now() - kMoment) {
    return std::nullopt;
  }
  identity.modified = written.time_since_epoch().count();
  identity.size = fs::file_size(native, error);
#ifndef _WIN32
  struct stat status {};
  if (stat(native.c_str(), &status) != 0) {
    return std::nullopt;
  }
  identity.device = status.st_dev;
  identity.inode = status.st_ino;
  identity.changed = std::int64_t{status.st_ctim.tv_sec} * 1'000'000'000 + status.st_ctim.tv_nsec;
#endif
  return error ? std::nullopt : std::optional(identity);
}

FileContent readFile(const std::string& native, std::uint64_t mostBytes) {
  std::error_code error;
  const fs::file_status status = fs::status(native, error);
  if (!fs::exists(status)) {
    return {{}, error ? error.message() : "no such file"};
  }
  if (!fs::is_regular_file(status)) {
    return {{}, "is not a regular file"};
  }
  const std::uint64_t size = fs::file_size(native, error);
  if (!error && size > mostBytes) {
    return {{}, "is larger than " + std::to_string(mostBytes >> 20U) + " MiB"};
  }
  std::ifstream file(native, std::ios::binary);
  if (error || !file.is_open()) {
    return {{}, "cannot be opened"};
  }
  FileContent content{std::string(size, '\0'), {}};
  file.read(content.bytes.data(), static_cast<std::streamsize>(size));
  if (static_cast<std::uint64_t>(file.gcount()) != size) {
    return {{}, "cannot be read"};
  }
  return content;
}

}  // namespace ORVEL::UTILS
