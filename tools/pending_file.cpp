#include "tools/pending_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <system_error>

#include "tools/tool_error.h"

namespace ORVEL::TOOLS {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void fail(const fs::path& path, const std::string& reason) {
  throw ToolError(ExitCode::output, path.string() + ": " + reason);
}

[[noreturn]] void failErrno(const fs::path& path, const char* what) {
  const int code = errno;
  fail(path, std::string(what) + ": " + std::generic_category().message(code));
}

// A symbolic link stays one: what it points to is replaced.
fs::path followLink(const fs::path& target) {
  std::error_code error;
  if (!fs::is_symlink(target, error)) return target;
  fs::path real = fs::canonical(target, error);
  if (error) fail(target, "symbolic link to nowhere");
  return real;
}

UniqueFd createBeside(const fs::path& target, fs::path& temporary) {
  static std::atomic<unsigned> counter{0};
  const fs::path directory = target.has_parent_path() ? target.parent_path() : fs::path(".");
  for (int attempt = 0; attempt < 100; ++attempt) {
    temporary = directory / (".orvel-" + std::to_string(::getpid()) + "-" +
                             std::to_string(counter++) + ".part");
    const int fd =
        ::open(temporary.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0666);
    if (fd >= 0) return UniqueFd(fd);
    if (errno != EEXIST) break;
  }
  const std::string reason = std::generic_category().message(errno);
  temporary.clear();
  fail(target, "cannot create a file in '" + directory.string() + "': " + reason);
}

}  // namespace

PendingFile::PendingFile(const fs::path& target, bool force)
    : target_(followLink(target)), force_(force) {
  struct stat info {};
  const bool exists = ::stat(target_.c_str(), &info) == 0;
  if (exists && !S_ISREG(info.st_mode)) fail(target, "is not a regular file");
  if (exists && !force_) fail(target, "exists already; --force replaces it");
  fd_ = createBeside(target_, temporary_);
  // Replacing a file does not change who may read it.
  if (exists && ::fchmod(fd_.get(), info.st_mode & 07777) != 0)
    failErrno(target, "cannot set mode");
}

PendingFile::~PendingFile() {
  if (!temporary_.empty()) ::unlink(temporary_.c_str());
}

void PendingFile::commit() {
  int result = -1;
  if (force_) {
    result = ::rename(temporary_.c_str(), target_.c_str());
  } else {
    result = ::renameat2(AT_FDCWD, temporary_.c_str(), AT_FDCWD, target_.c_str(), RENAME_NOREPLACE);
    // Some file systems cannot refuse an existing name by themselves.
    if (result != 0 && (errno == EINVAL || errno == ENOSYS)) {
      if (::access(target_.c_str(), F_OK) == 0)
        fail(target_, "exists already; --force replaces it");
      result = ::rename(temporary_.c_str(), target_.c_str());
    }
  }
  if (result != 0) {
    if (errno == EEXIST) fail(target_, "appeared while it was being made; --force replaces it");
    failErrno(target_, "cannot rename the finished file");
  }
  temporary_.clear();
}

}  // namespace ORVEL::TOOLS
