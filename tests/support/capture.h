// Takes over descriptors 1 and 2 while it lives, whichever stream or C call writes to them.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <string>

namespace orvel_test {

class Capture {
 public:
  Capture() : out_(1), err_(2) {}
  // Everything written since the start or the last call.
  std::string out() { return out_.take(); }
  std::string err() { return err_.take(); }

 private:
  class Redirected {
   public:
    explicit Redirected(int descriptor) : descriptor_(descriptor) {
      flush();
      saved_ = dup(descriptor);
      memory_ = memfd_create("captured", 0);
      dup2(memory_, descriptor);
    }
    ~Redirected() {
      flush();
      dup2(saved_, descriptor_);
      close(saved_);
      close(memory_);
    }
    Redirected(const Redirected&) = delete;
    Redirected& operator=(const Redirected&) = delete;

    std::string take() {
      flush();
      const off_t size = lseek(memory_, 0, SEEK_CUR);
      std::string text(static_cast<size_t>(size - taken_), '\0');
      const ssize_t got = pread(memory_, text.data(), text.size(), taken_);
      text.resize(got > 0 ? static_cast<size_t>(got) : 0);
      taken_ = size;
      return text;
    }

   private:
    static void flush() {
      std::cout.flush();
      std::cerr.flush();
      std::fflush(nullptr);
    }
    int descriptor_, saved_, memory_;
    off_t taken_ = 0;
  };
  Redirected out_, err_;
};

}  // namespace orvel_test
