// Processor time of the calling thread: what others do on the machine is not in it.
#pragma once

#include <sys/resource.h>
#include <time.h>

#include <cstdio>

namespace orvel_bench {

inline double threadNanoseconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

template <class Work>
double nanosecondsOf(Work&& work) {
  const double before = threadNanoseconds();
  work();
  return threadNanoseconds() - before;
}

// Memory that the process holds in RAM, bytes.
inline double residentBytes() {
  std::FILE* file = std::fopen("/proc/self/statm", "r");
  long total = 0;
  long resident = 0;
  if (file != nullptr) {
    if (std::fscanf(file, "%ld %ld", &total, &resident) != 2) resident = 0;
    std::fclose(file);
  }
  return static_cast<double>(resident) * 4096.0;
}

}  // namespace orvel_bench
