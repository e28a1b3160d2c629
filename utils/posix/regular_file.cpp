#include "utils/regular_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <system_error>

namespace ORVEL::UTILS {

namespace {

std::int64_t nanoseconds(const timespec& time) {
  return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

std::string textOf(int error) { return std::generic_category().message(error); }

FileIdentity identityOf(const struct stat& status) {
  return {.device = status.st_dev,
          .inode = status.st_ino,
          .size = status.st_size,
          .modified = nanoseconds(status.st_mtim),
          .changed = nanoseconds(status.st_ctim)};
}

}  // namespace

RegularFile::RegularFile(const std::string& native) {
  struct stat status {};
  if (stat(native.c_str(), &status) != 0) {
    problem_ = textOf(errno);
    return;
  }
  if (S_ISREG(status.st_mode)) {
    // Not blocking: another file may have taken its place.
    descriptor_ = open(native.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor_ < 0 || fstat(descriptor_, &status) != 0) {
      problem_ = "cannot be opened (" + textOf(errno) + ")";
      return;
    }
  }
  if (!S_ISREG(status.st_mode)) {
    problem_ = "is not a regular file";
  }
  status_ = identityOf(status);
}

RegularFile::~RegularFile() {
  if (descriptor_ >= 0) {
    close(descriptor_);
  }
}

std::optional<FileIdentity> RegularFile::identity() const {
  // Longer than the steps in which file systems and kernels count time.
  constexpr std::int64_t kMoment = 50'000'000;
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  if (!problem_.empty() || status_.modified > nanoseconds(now) - kMoment) {
    return std::nullopt;
  }
  return status_;
}

FileContent RegularFile::read(std::uint64_t mostBytes) const {
  if (!problem_.empty()) {
    return {{}, problem_};
  }
  const auto size = static_cast<std::uint64_t>(status_.size);
  if (size > mostBytes) {
    return {{}, "is larger than " + std::to_string(mostBytes >> 20U) + " MiB"};
  }
  FileContent content{std::string(size, '\0'), {}};
  for (std::size_t have = 0; have < size;) {
    const ssize_t got =
        ::pread(descriptor_, content.bytes.data() + have, size - have, static_cast<off_t>(have));
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got <= 0) {
      return {{}, got < 0 ? "cannot be read (" + textOf(errno) + ")" : "changed while it was read"};
    }
    have += static_cast<std::size_t>(got);
  }
  return content;
}

bool fileExists(const std::string& native) { return access(native.c_str(), F_OK) == 0; }

}  // namespace ORVEL::UTILS
