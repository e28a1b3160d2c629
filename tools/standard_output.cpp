#include "tools/standard_output.h"

#include <fcntl.h>
#include <sys/mman.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <iostream>
#include <sstream>
#include <string_view>
#include <system_error>

#include "tools/tool_error.h"

namespace ORVEL::TOOLS {
namespace {

void flushAll() {
  std::cout.flush();
  std::cerr.flush();
  std::fflush(stdout);
  std::fflush(stderr);
}

UniqueFd duplicate(int descriptor) {
  UniqueFd copy(::fcntl(descriptor, F_DUPFD_CLOEXEC, 3));
  // A closed standard stream is replaced by one that swallows or refuses everything.
  if (!copy) copy.reset(::open("/dev/null", O_RDWR | O_CLOEXEC));
  return copy;
}

// Redirects descriptors 1 and 2 for its life time.
class Redirection {
 public:
  explicit Redirection(int target) {
    flushAll();
    for (int i = 0; i < 2; ++i) {
      saved_[i] = duplicate(i + 1);
      ::dup2(target, i + 1);
    }
  }
  Redirection(const Redirection&) = delete;
  Redirection& operator=(const Redirection&) = delete;
  ~Redirection() {
    flushAll();
    for (int i = 0; i < 2; ++i)
      ::dup2(saved_[i].get(), i + 1);
  }

 private:
  std::array<UniqueFd, 2> saved_;
};

std::string contents(int descriptor) {
  std::string text;
  std::array<char, 4096> block{};
  off_t position = 0;
  for (;;) {
    const ssize_t got = ::pread(descriptor, block.data(), block.size(), position);
    if (got <= 0) return text;
    text.append(block.data(), static_cast<std::size_t>(got));
    position += got;
  }
}

}  // namespace

StandardOutput::StandardOutput() : real_(duplicate(STDOUT_FILENO)) {
  flushAll();
  ::dup2(STDERR_FILENO, STDOUT_FILENO);
}

void StandardOutput::write(const std::string& text) const {
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t wrote = ::write(real_.get(), text.data() + done, text.size() - done);
    if (wrote < 0 && errno == EINTR) continue;
    if (wrote < 0) {
      throw ToolError(ExitCode::output,
                      "standard output: writing failed: " + std::generic_category().message(errno));
    }
    done += static_cast<std::size_t>(wrote);
  }
}

std::string capturePrinted(const std::function<void()>& work) {
  const UniqueFd file(::memfd_create("orvel-texts", MFD_CLOEXEC));
  if (!file) {
    work();
    return {};
  }
  {
    const Redirection redirection(file.get());
    work();
  }
  return contents(file.get());
}

std::string withoutEcho(const std::string& printed) {
  std::istringstream lines(printed);
  std::string kept;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("ENVIRONMENT KEY-") || line.starts_with("WEIGHT ") || line.empty())
      continue;
    // Warnings of tuning keys come without a line end of their own.
    constexpr std::string_view kMark = "WARNING";
    for (auto at = line.find(kMark, 1); at != std::string::npos; at = line.find(kMark, at + 2)) {
      line.insert(at, 1, '\n');
    }
    kept += line + '\n';
  }
  return kept;
}

}  // namespace ORVEL::TOOLS
