// Sessions on many threads while others are created and closed and models are loaded.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <barrier>
#include <cstdint>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/sdk.h"
#include "tests/support/signals.h"

extern "C" __attribute__((weak)) void __sanitizer_set_report_fd(void* descriptor);

namespace orvel_test {
namespace {

// A sanitizer reports to the standard error that the program began with, also while a test has redirected it.
[[maybe_unused]] const bool reportsAreVisible = [] {
  if (__sanitizer_set_report_fd == nullptr) return false;
  __sanitizer_set_report_fd(reinterpret_cast<void*>(static_cast<std::intptr_t>(dup(2))));
  return true;
}();

constexpr int kWorkers = 8;
constexpr int kRounds = 25;
constexpr size_t kFrames = 12;

struct Route {
  const char* model;
  int inRate, outRate;
};
constexpr Route kRoutes[] = {
    {"first", 16000, 16000},    {"first", 48000, 8000},   {"recurrent", 16000, 44100},
    {"recurrent", 8000, 16000}, {"banded", 96000, 96000},
};

void loadModels(Sdk& sdk) {
  ASSERT_EQ(sdk.load("first", makeModel({.version = "0.0.1"})), 0);
  ASSERT_EQ(sdk.load("banded", makeModel({.version = "0.0.4", .compress = 1})), 0);
  ASSERT_EQ(sdk.load("recurrent", makeModel({.version = "0.0.5", .compress = 2})), 0);
}

std::vector<int16_t> run(const Route& route, void** handle) {
  *handle = Orv_NC_CreateSession(route.inRate, route.outRate, 10, route.model);
  const size_t inSize = samplesPerFrame(route.inRate, 10);
  std::vector<int16_t> in = speechLike(route.inRate, 0.2);
  in.resize(kFrames * inSize);
  return cleanStream(*handle, in, inSize, samplesPerFrame(route.outRate, 10));
}

bool isRefused(void* handle) {
  int16_t frame[960] = {};
  uint32_t latency = 0;
  return clean(handle, frame, 160, frame, 160) == 2 && Orv_NC_GetLatency(handle, &latency) == 2 &&
         Orv_NC_CloseSession(handle) == -3;
}

// Every stream must come out as it does alone, and no handle may come back.
TEST(Threads, WorkersDoNotDisturbEachOther) {
  Sdk sdk;
  loadModels(sdk);
  Capture quiet;
  std::vector<std::vector<int16_t>> expected;
  for (const Route& route : kRoutes) {
    void* handle = nullptr;
    expected.push_back(run(route, &handle));
    ASSERT_EQ(Orv_NC_CloseSession(handle), 0);
  }
  std::mutex mutex;
  std::set<void*> seen;
  std::atomic<int> working{kWorkers};
  std::atomic<int> wrongStreams{0}, reused{0}, accepted{0}, notLoaded{0};
  std::barrier start(kWorkers + 1);

  const auto work = [&](unsigned seed) {
    std::mt19937 random(seed);
    std::vector<void*> closed;
    start.arrive_and_wait();
    for (int round = 0; round < kRounds; ++round) {
      const size_t which = random() % std::size(kRoutes);
      void* handle = nullptr;
      wrongStreams += run(kRoutes[which], &handle) != expected[which];
      {
        const std::lock_guard lock(mutex);
        reused += !seen.insert(handle).second;
      }
      accepted += Orv_NC_CloseSession(handle) != 0;
      closed.push_back(handle);
      accepted += !isRefused(closed[random() % closed.size()]);
    }
    --working;
  };
  std::vector<std::thread> threads;
  for (unsigned i = 0; i < kWorkers; ++i)
    threads.emplace_back(work, i + 1);
  threads.emplace_back([&] {
    start.arrive_and_wait();
    for (int i = 0; working > 0; ++i) {
      // Names of their own, and weights that are new and that are shared in turn.
      sdk.dir().write("loaded.ctl", i % 2 == 0 ? "WEIGHT first-weights.bin\n"
                                               : "WEIGHT .\\recurrent-weights.bin\nKEY value\n");
      notLoaded += Orv_SDK_SetModel("loaded.ctl", ("loaded" + std::to_string(i)).c_str()) != 0;
      std::this_thread::yield();
    }
  });
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(wrongStreams, 0);
  EXPECT_EQ(reused, 0);
  EXPECT_EQ(accepted, 0);
  EXPECT_EQ(notLoaded, 0);
  EXPECT_EQ(seen.size(), size_t{kWorkers} * kRounds);
}

// Closed by several threads at once: one of them does it, the others are told, nobody touches what is
// gone.
TEST(Threads, OneOfManyClosesWins) {
  Sdk sdk;
  loadModels(sdk);
  Capture quiet;
  constexpr int kClosers = 4;
  constexpr int kTries = 200;
  std::vector<void*> handles(kTries);
  for (void*& handle : handles)
    handle = Orv_NC_CreateSession(16000, 16000, 10, "first");
  std::vector<std::vector<int>> results(kClosers, std::vector<int>(kTries));
  std::atomic<int> arrived{0};
  const auto closeAll = [&](std::vector<int>& result) {
    for (int i = 0; i < kTries; ++i) {
      // A barrier would wake one thread after the other; all have to be running.
      ++arrived;
      while (arrived < kClosers * (i + 1))
        std::this_thread::yield();
      result[i] = Orv_NC_CloseSession(handles[i]);
    }
  };
  std::vector<std::thread> threads;
  for (std::vector<int>& result : results)
    threads.emplace_back(closeAll, std::ref(result));
  for (std::thread& thread : threads)
    thread.join();
  for (int i = 0; i < kTries; ++i) {
    int closed = 0;
    for (const std::vector<int>& result : results)
      closed += result[i] == 0;
    EXPECT_EQ(closed, 1);
  }
}

}  // namespace
}  // namespace orvel_test
