// A regular file that lives in memory only, for code that takes a path.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace orvel_fuzz {

class MemoryFile {
 public:
  MemoryFile() : descriptor_(memfd_create("fuzz", 0)) {}
  explicit MemoryFile(std::string_view bytes) : MemoryFile() { write(bytes); }
  ~MemoryFile() { close(descriptor_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  // Replaces the content.
  void write(std::string_view bytes) const {
    if (ftruncate(descriptor_, 0) != 0 ||
        pwrite(descriptor_, bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
      __builtin_trap();
    }
  }
  int descriptor() const { return descriptor_; }
  std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

 private:
  int descriptor_;
};

}  // namespace orvel_fuzz
