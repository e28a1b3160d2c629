#include "tools/pending_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <string>
#include <system_error>

#include "tools/tool_error.h"
#include "utils/native_path.h"

namespace ORVEL::TOOLS {
namespace {

namespace fs = std::filesystem;

constexpr const char* kAppeared = "appeared while it was being made; --force replaces it";

[[noreturn]] void fail(const fs::path& path, const std::string& reason) {
  throw ToolError(ExitCode::kOutput, path.string() + ": " + reason);
}

[[noreturn]] void failExisting(const fs::path& path) {
  fail(path, "exists already; --force replaces it");
}

// A symbolic link stays one: what it points to is replaced.
fs::path followLink(const fs::path& target) {
  std::error_code error;
  if (!fs::is_symlink(target, error)) {
    return target;
  }
  fs::path real = fs::canonical(target, error);
  if (error) {
    fail(target, "symbolic link to nowhere");
  }
  return real;
}

fs::path temporaryName(const fs::path& target) {
  static std::atomic<unsigned> counter{0};
  return UTILS::pathIn(
      UTILS::folderOf(target.native()),
      ".orvel-" + std::to_string(::getpid()) + "-" + std::to_string(counter++) + ".part");
}

std::string ownLink(int descriptor) { return "/proc/self/fd/" + std::to_string(descriptor); }

UniqueFd openNameless(const fs::path& target) {
  UniqueFd fd(
      ::open(UTILS::folderOf(target.native()).c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0666));
  if (fd && ::access(ownLink(fd.get()).c_str(), F_OK) != 0) {
    fd.reset();  // without /proc it could not get a name
  }
  return fd;
}

}  // namespace

PendingFile::PendingFile(const fs::path& target, bool force)
    : target_(followLink(target)), force_(force) {
  struct stat info {};
  const bool exists = ::stat(target_.c_str(), &info) == 0;
  if (exists && !S_ISREG(info.st_mode)) {
    fail(target, "is not a regular file");
  }
  if (exists && !force_) {
    failExisting(target);
  }
  fd_ = openNameless(target_);
  if (!fd_) {
    temporary_ = temporaryName(target_);
    constexpr int kFlags = O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW;
    fd_.reset(::open(temporary_.c_str(), kFlags, 0666));
  }
  if (!fd_) {
    const int error = errno;
    temporary_.clear();
    fail(target, "cannot create a file in '" + UTILS::folderOf(target_.native()) +
                     "': " + systemMessage(error));
  }
  // Replacing a file does not change who may read it.
  if (exists && ::fchmod(fd_.get(), info.st_mode & 07777) != 0) {
    fail(target, "cannot set mode: " + systemMessage(errno));
  }
}

PendingFile::~PendingFile() {
  if (!temporary_.empty()) {
    ::unlink(temporary_.c_str());
  }
}

// Gives the nameless file a name that is free. False where something has it.
bool PendingFile::link(const fs::path& name) {
  if (::linkat(AT_FDCWD, ownLink(fd_.get()).c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) ==
      0) {
    return true;
  }
  if (errno != EEXIST) {
    fail(target_, "cannot name the finished file: " + systemMessage(errno));
  }
  return false;
}

void PendingFile::commit() {
  // A file system may take bytes first and find out later that it has no room for them.
  if (::fsync(fd_.get()) != 0 && errno != EINVAL) {
    fail(target_, "writing failed: " + systemMessage(errno));
  }
  checkWritten(fd_.get(), target_.string());
  if (temporary_.empty()) {
    if (link(target_)) {
      return;
    }
    if (!force_) {
      fail(target_, kAppeared);
    }
    // Only renaming replaces a file in one step.
    const fs::path name = temporaryName(target_);
    if (!link(name)) {
      fail(target_, "cannot name the finished file: '" + name.string() + "' is there");
    }
    temporary_ = name;
  }
  int result = -1;
  if (force_) {
    result = ::rename(temporary_.c_str(), target_.c_str());
  } else {
    result = ::renameat2(AT_FDCWD, temporary_.c_str(), AT_FDCWD, target_.c_str(), RENAME_NOREPLACE);
    // Some file systems cannot refuse an existing name by themselves.
    if (result != 0 && (errno == EINVAL || errno == ENOSYS)) {
      if (::access(target_.c_str(), F_OK) == 0) {
        failExisting(target_);
      }
      result = ::rename(temporary_.c_str(), target_.c_str());
    }
  }
  if (result != 0) {
    if (errno == EEXIST) {
      fail(target_, kAppeared);
    }
    fail(target_, "cannot rename the finished file: " + systemMessage(errno));
  }
  temporary_.clear();
}

}  // namespace ORVEL::TOOLS
