#pragma once

#include <unistd.h>

#include <cstddef>
#include <optional>
#include <string>
#include <utility>

#include "tools/tool_error.h"

namespace ORVEL::TOOLS {

/** Owns a POSIX file descriptor. */
class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) noexcept : fd_(fd) {}
  UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    if (this != &other) {
      reset(std::exchange(other.fd_, -1));
    }
    return *this;
  }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;
  ~UniqueFd() { reset(); }

  int get() const noexcept { return fd_; }
  explicit operator bool() const noexcept { return fd_ >= 0; }
  int release() noexcept { return std::exchange(fd_, -1); }
  void reset(int fd = -1) noexcept {
    if (fd_ >= 0) {
      ::close(fd_);
    }
    fd_ = fd;
  }

 private:
  int fd_ = -1;
};

/** The system's words for an errno. */
std::string systemMessage(int code);

/** Takes the place of standard streams that are closed, so that no file is opened in theirs. */
void fillStandardStreams();

/**
 * The descriptor that a path stands for: `standard` for "-", and what /dev/stdin, /dev/stdout,
 * /dev/stderr and /dev/fd/N name; nothing for any other path.
 */
std::optional<int> namedDescriptor(const std::string& path, int standard);

/**
 * Opens a path, or duplicates the descriptor that it stands for. Waits for the other end of a FIFO.
 *
 * @param flags O_RDONLY or O_WRONLY; "-" is standard input or output accordingly.
 * @throws ToolError (kInput or kOutput by the flags; kInterrupted)
 */
UniqueFd openPath(const std::string& path, int flags);

/**
 * Reads what is there, waiting for at least a byte. @return bytes read, 0 at the end.
 * @throws ToolError (kInput, kInterrupted)
 */
std::size_t readSome(int descriptor, void* buffer, std::size_t size, const std::string& name);

/** Writes everything. @throws ToolError (kOutput, kInterrupted), ClosedPipe */
void writeAll(int descriptor, const void* data, std::size_t size, const std::string& name);

/** A second descriptor of the same file. @throws ToolError with the code */
UniqueFd duplicate(int descriptor, ExitCode code, const std::string& name);

/**
 * Closes a second descriptor of the same file: some file systems report only then that what was written
 * found no room. @throws ToolError (kOutput)
 */
void checkWritten(int descriptor, const std::string& name);

/** Writes text to standard output. @throws as writeAll */
void print(const std::string& text);

}  // namespace ORVEL::TOOLS
