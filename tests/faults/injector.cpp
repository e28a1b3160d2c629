#include "tests/faults/injector.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "tests/support/replaced.h"

namespace orvel_test {

namespace {
constinit Injector instance;
}

Injector& injector() { return instance; }

}  // namespace orvel_test

namespace {

using orvel_test::Fault;
using orvel_test::injector;
using orvel_test::original;

bool fails(Fault kind, int error) {
  auto& state = injector();
  if (!state.armed.load(std::memory_order_relaxed)) return false;
  const long call = ++state.calls[static_cast<std::size_t>(kind)];
  const long failing = state.failing.load();
  if (kind != state.kind || failing == 0) return false;
  if (call != failing && !(state.andAllLater && call > failing)) return false;
  errno = error;
  return true;
}

#ifdef ORVEL_PRELOADED
// Some libraries that read and convert audio end the program when they get no memory: what is asked for here
// is what the program does when its own requests fail, which come from it, the C++ library and the C library.
bool ofOthers(const void* caller) {
  Dl_info where{};
  if (dladdr(caller, &where) == 0 || where.dli_fname == nullptr) return false;
  const char* const slash = std::strrchr(where.dli_fname, '/');
  const std::string_view name = slash == nullptr ? where.dli_fname : slash + 1;
  return !name.starts_with("orvel") && !name.starts_with("liborvel") &&
         !name.starts_with("libstdc++") && !name.starts_with("libc.so");
}
#else
bool ofOthers(const void* /*caller*/) { return false; }
#endif

bool noMemory(const void* caller) { return !ofOthers(caller) && fails(Fault::kMemory, ENOMEM); }

void* taken(void* block) {
  if (block != nullptr) ++injector().liveBlocks;
  return block;
}

}  // namespace

ORVEL_REPLACES void* malloc(std::size_t size) {
  return noMemory(__builtin_return_address(0)) ? nullptr : taken(__libc_malloc(size));
}
ORVEL_REPLACES void* calloc(std::size_t count, std::size_t size) {
  return noMemory(__builtin_return_address(0)) ? nullptr : taken(__libc_calloc(count, size));
}
ORVEL_REPLACES void* realloc(void* block, std::size_t size) {
  if (noMemory(__builtin_return_address(0))) return nullptr;
  void* const moved = __libc_realloc(block, size);
  if (block == nullptr) return taken(moved);
  if (size == 0) --injector().liveBlocks;
  return moved;
}
ORVEL_REPLACES void free(void* block) {
  if (block != nullptr) --injector().liveBlocks;
  __libc_free(block);
}
ORVEL_REPLACES void* memalign(std::size_t alignment, std::size_t size) {
  return noMemory(__builtin_return_address(0)) ? nullptr : taken(__libc_memalign(alignment, size));
}
ORVEL_REPLACES void* aligned_alloc(std::size_t alignment, std::size_t size) {
  return memalign(alignment, size);
}
ORVEL_REPLACES int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
  *block = memalign(alignment, size);
  return *block == nullptr ? ENOMEM : 0;
}

// The C library's function of that name, or what it gives when it fails.
#define FAULTY(kind, error, failure, result, name, parameters, arguments)                   \
  ORVEL_REPLACES result name parameters {                                                   \
    static void* cache = nullptr;                                                           \
    return fails(Fault::kind, error) ? failure                                              \
                                     : original<result parameters>(cache, #name) arguments; \
  }

FAULTY(kMap, ENOMEM, MAP_FAILED, void*, mmap, (void* at, size_t n, int p, int f, int fd, off_t o),
       (at, n, p, f, fd, o))
FAULTY(kOpen, EMFILE, nullptr, FILE*, fopen, (const char* path, const char* mode), (path, mode))
FAULTY(kOpen, EMFILE, nullptr, FILE*, fopen64, (const char* path, const char* mode), (path, mode))
FAULTY(kRead, EIO, -1, ssize_t, read, (int fd, void* to, size_t n), (fd, to, n))
FAULTY(kRead, EIO, -1, ssize_t, pread, (int fd, void* to, size_t n, off_t at), (fd, to, n, at))
FAULTY(kWrite, ENOSPC, -1, ssize_t, write, (int fd, const void* from, size_t n), (fd, from, n))
FAULTY(kWrite, ENOSPC, -1, ssize_t, writev, (int fd, const iovec* from, int n), (fd, from, n))
FAULTY(kThread, EAGAIN, EAGAIN, int, pthread_create,
       (pthread_t * thread, const pthread_attr_t* how, void* (*body)(void*), void* with),
       (thread, how, body, with))

#define FAULTY_OPEN(name)                                                      \
  ORVEL_REPLACES int name(const char* path, int flags, ...) {                  \
    std::va_list rest;                                                         \
    va_start(rest, flags);                                                     \
    const mode_t mode = va_arg(rest, mode_t);                                  \
    va_end(rest);                                                              \
    if (fails(Fault::kOpen, EMFILE)) return -1;                                \
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode)); \
  }
FAULTY_OPEN(open)
FAULTY_OPEN(open64)

#ifdef ORVEL_PRELOADED
// Into a program, by the environment: ORVEL_FAULT="KIND CALL", counts to the file ORVEL_FAULT_COUNTS. From
// main on: before it nobody could tell of an error.
namespace {

int (*mainOfProgram)(int, char**, char**) = nullptr;

int armedMain(int count, char** words, char** environment) {
  auto& state = injector();
  char* rest = nullptr;
  state.kind = static_cast<Fault>(std::strtol(std::getenv("ORVEL_FAULT"), &rest, 10));
  state.failing = std::strtol(rest, nullptr, 10);
  state.armed = true;
  return mainOfProgram(count, words, environment);
}

__attribute__((destructor)) void tellCounts() {
  auto& state = injector();
  state.armed = false;
  const int file = open(std::getenv("ORVEL_FAULT_COUNTS"), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  for (const auto& calls : state.calls)
    dprintf(file, "%ld\n", calls.load());
  close(file);
}

}  // namespace

ORVEL_REPLACES int __libc_start_main(int (*program)(int, char**, char**), int count, char** words,
                                     void (*init)(), void (*fini)(), void (*rtldFini)(),
                                     void* stackEnd) {
  static void* cache = nullptr;
  mainOfProgram = program;
  return original<int(decltype(program), int, char**, void (*)(), void (*)(), void (*)(), void*)>(
      cache, "__libc_start_main")(armedMain, count, words, init, fini, rtldFini, stackEnd);
}
#endif
