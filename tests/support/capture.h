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
  // Everything written since the start or the last call.
  std::string out() { return out_.take(); }
  std::string err() { return err_.take(); }

 private:
  class Redirected {
   public:
    explicit Redirected(int descriptor)
        : descriptor_(descriptor), saved_(dup(descriptor)), memory_(memfd_create("captured", 0)) {
      redirect(memory_);
    }
    ~Redirected() {
      redirect(saved_);
      close(saved_);
      close(memory_);
    }
    Redirected(const Redirected&) = delete;
    Redirected& operator=(const Redirected&) = delete;

    std::string take() {
      redirect(memory_);
      std::string text(static_cast<size_t>(lseek(memory_, 0, SEEK_CUR) - taken_), '\0');
      taken_ += pread(memory_, text.data(), text.size(), taken_);
      return text;
    }

   private:
    void redirect(int target) const {
      std::cout.flush();
      std::cerr.flush();
      std::fflush(nullptr);
      dup2(target, descriptor_);
    }
    int descriptor_, saved_, memory_;
    off_t taken_ = 0;
  };
  Redirected out_{1}, err_{2};
};

}  // namespace orvel_test
