#include "utils/error_line.h"

#include <poll.h>
#include <pthread.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <ctime>

namespace ORVEL::UTILS {

namespace {

/** A burst of 1000, refilled with 10 a second; counted as the time at which the last one would be due. */
bool isDue() {
  constexpr std::int64_t kInterval = 100'000'000;  // ns
  constexpr std::int64_t kBurst = 999 * kInterval;
  static constinit std::atomic<std::int64_t> lastDue{0};
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  const std::int64_t now = std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
  std::int64_t last = lastDue.load();
  while (last <= now + kBurst) {
    if (lastDue.compare_exchange_weak(last, std::max(last, now) + kInterval)) {
      return true;
    }
  }
  return false;
}

bool takesIt() {
  pollfd standardError{.fd = STDERR_FILENO, .events = POLLOUT, .revents = 0};
  return poll(&standardError, 1, 0) == 1 && standardError.revents == POLLOUT;
}

}  // namespace

void writeErrorLine(std::initializer_list<std::string_view> parts) noexcept {
  const int hostsError = errno;
  std::array<iovec, 8> text{};
  const std::size_t count = std::min(parts.size(), text.size());
  std::transform(parts.begin(), parts.begin() + count, text.begin(), [](std::string_view part) {
    return iovec{.iov_base = const_cast<char*>(part.data()), .iov_len = part.size()};
  });
  if (isDue() && takesIt()) {
    // The reader may go meanwhile: the signal is kept from the host, unless it was pending before.
    sigset_t pipe, pending, before;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    sigpending(&pending);
    pthread_sigmask(SIG_BLOCK, &pipe, &before);
    if (writev(STDERR_FILENO, text.data(), static_cast<int>(count)) < 0 && errno == EPIPE &&
        sigismember(&pending, SIGPIPE) == 0) {
      constexpr timespec kNoTime{};
      sigtimedwait(&pipe, nullptr, &kNoTime);
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
  }
  errno = hostsError;
}

}  // namespace ORVEL::UTILS
