#include "tools/descriptor.h"

#include <fcntl.h>
#include <poll.h>

#include <cerrno>
#include <charconv>
#include <string_view>
#include <system_error>

#include "tools/tool_error.h"

namespace ORVEL::TOOLS {
namespace {

// After a call that failed: returns where it is to be tried again, throws otherwise.
void retryOrThrow(int descriptor, short event, ExitCode code, const std::string& what) {
  const int error = errno;
  if (error == EINTR) {
    throwIfInterrupted();
    return;
  }
  if (error == EAGAIN || error == EWOULDBLOCK) {
    struct pollfd wait {};
    wait.fd = descriptor;
    wait.events = event;
    ::poll(&wait, 1, -1);
    throwIfInterrupted();
    return;
  }
  if (error == EPIPE) {
    throw ClosedPipe();
  }
  throw ToolError(code, what + ": " + systemMessage(error));
}

}  // namespace

std::string systemMessage(int code) { return std::generic_category().message(code); }

void fillStandardStreams() {
  for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
    if (::fcntl(stream, F_GETFD) == -1) {
      // The wrong way round, so that its use fails. It gets the lowest free number: this one.
      ::open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    }
  }
}

std::optional<int> namedDescriptor(const std::string& path, int standard) {
  if (path == "-") {
    return standard;
  }
  if (path == "/dev/stdin") {
    return STDIN_FILENO;
  }
  if (path == "/dev/stdout") {
    return STDOUT_FILENO;
  }
  if (path == "/dev/stderr") {
    return STDERR_FILENO;
  }
  for (const std::string_view folder : {"/dev/fd/", "/proc/self/fd/"}) {
    if (path.starts_with(folder)) {
      int number = -1;
      const char* end = path.data() + path.size();
      const auto result = std::from_chars(path.data() + folder.size(), end, number);
      if (result.ec == std::errc() && result.ptr == end && number >= 0) {
        return number;
      }
    }
  }
  return std::nullopt;
}

UniqueFd openPath(const std::string& path, int flags) {
  const bool reads = flags == O_RDONLY;
  const auto named = namedDescriptor(path, reads ? STDIN_FILENO : STDOUT_FILENO);
  const ExitCode code = reads ? ExitCode::kInput : ExitCode::kOutput;
  for (;;) {
    UniqueFd fd(named ? ::fcntl(*named, F_DUPFD_CLOEXEC, 3)
                      : ::open(path.c_str(), flags | O_CLOEXEC));
    if (fd) {
      return fd;
    }
    retryOrThrow(-1, 0, code, path + ": cannot open");
  }
}

std::size_t readSome(int descriptor, void* buffer, std::size_t size, const std::string& name) {
  for (;;) {
    const ssize_t got = ::read(descriptor, buffer, size);
    if (got >= 0) {
      return static_cast<std::size_t>(got);
    }
    retryOrThrow(descriptor, POLLIN, ExitCode::kInput, name + ": reading failed");
  }
}

void writeAll(int descriptor, const void* data, std::size_t size, const std::string& name) {
  const char* bytes = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t wrote = ::write(descriptor, bytes, size);
    if (wrote >= 0) {
      bytes += wrote;
      size -= static_cast<std::size_t>(wrote);
    } else {
      retryOrThrow(descriptor, POLLOUT, ExitCode::kOutput, name + ": writing failed");
    }
  }
}

UniqueFd duplicate(int descriptor, ExitCode code, const std::string& name) {
  UniqueFd second(::fcntl(descriptor, F_DUPFD_CLOEXEC, 3));
  if (!second) {
    throw ToolError(code, name + ": " + systemMessage(errno));
  }
  return second;
}

void checkWritten(int descriptor, const std::string& name) {
  if (::close(duplicate(descriptor, ExitCode::kOutput, name).release()) != 0) {
    throw ToolError(ExitCode::kOutput, name + ": closing failed: " + systemMessage(errno));
  }
}

void print(const std::string& text) {
  writeAll(STDOUT_FILENO, text.data(), text.size(), "standard output");
}

}  // namespace ORVEL::TOOLS
