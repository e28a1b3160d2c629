// Makes the n-th call of one kind fail, once or from then on: memory, mappings, files, threads. The
// functions are the program's own, which the dynamic linker also gives to the shared libraries.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>

namespace orvel_test {

enum class Fault : int { kMemory, kMap, kOpen, kRead, kWrite, kThread };
inline constexpr std::array kFaultNames{"memory", "mmap", "open", "read", "write", "thread"};
inline constexpr std::size_t kFaults = kFaultNames.size();

struct Injector {
  std::atomic<bool> armed{false};
  // The call that fails, from 1; 0: none, calls are only counted.
  std::atomic<long> failing{0};
  Fault kind{};
  bool andAllLater = false;
  std::array<std::atomic<long>, kFaults> calls{};  // while armed
  std::atomic<long> liveBlocks{0};                 // of memory, always
};

Injector& injector();

}  // namespace orvel_test
