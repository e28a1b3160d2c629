// Everything that the library asks of the system fails once, and fails from then on, at every call in turn:
// no crash, no leak, a true status, nothing half done, and the same call again gives what it would have
// given.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <functional>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "tests/faults/injector.h"
#include "tests/support/sdk.h"
#include "tests/support/signals.h"

namespace orvel_test {
namespace {

// What a life of the library needs, ready before the first call.
struct World {
  std::string folder, control, weights;
  std::vector<float> input;
  std::vector<float> output = std::vector<float>(4410);
  void* context = nullptr;
  void* session = nullptr;
};

using Call = bool (*)(World&);
struct Step {
  const char* name;
  Call call;
};

bool cleanFrames(World& w) {
  for (size_t frame = 0; frame < 10; ++frame)
    if (clean(w.session, &w.input[480 * frame], 480, &w.output[441 * frame], 441) != 0)
      return false;
  return true;
}
bool scoreFrames(World& w) {
  for (size_t frame = 0; frame < 10; ++frame)
    if (Orv_VAD_ProcessFloat(w.session, &w.input[480 * frame], 480, &w.output[frame]) != 0)
      return false;
  return true;
}

// Lives of the library from first to last call. Each step fails in turn, is repeated and must then succeed.
struct Life {
  const char* name;
  std::vector<Step> steps;
};
const Life kLives[] = {
    {"global instance",
     {{"GlobalInit", [](World& w) { return Orv_SDK_GlobalInit(w.folder.c_str()) == 0; }},
      {"SetModel", [](World&) { return Orv_SDK_SetModel("cleaner.ctl", "model") == 0; }},
      {"CreateSession",
       [](World& w) {
         return (w.session = Orv_NC_CreateSession(48000, 44100, 10, "model")) != nullptr;
       }},
      {"frames", cleanFrames},
      {"CloseSession", [](World& w) { return Orv_NC_CloseSession(w.session) == 0; }},
      {"GlobalDestroy", [](World&) { return Orv_SDK_GlobalDestroy() == 0; }}}},
    {"context with files",
     {{"Create",
       [](World& w) { return (w.context = Orv_Context_Create(w.folder.c_str())) != nullptr; }},
      {"SetModel",
       [](World& w) { return Orv_Context_SetModel(w.context, "cleaner.ctl", "model") == 0; }},
      {"CreateCleaner",
       [](World& w) {
         return (w.session = Orv_Context_CreateCleaner(w.context, 48000, 44100, 10, "model")) !=
                nullptr;
       }},
      {"frames", cleanFrames},
      {"Destroy", [](World& w) { return Orv_Context_Destroy(w.context) == 0; }}}},
    {"context with memory",
     {{"Create", [](World& w) { return (w.context = Orv_Context_Create(nullptr)) != nullptr; }},
      {"SetModelFromMemory",
       [](World& w) {
         return Orv_Context_SetModelFromMemory(w.context, w.control.data(), w.control.size(),
                                               w.weights.data(), w.weights.size(), "model") == 0;
       }},
      {"CreateDetector",
       [](World& w) {
         return (w.session = Orv_Context_CreateDetector(w.context, 48000, 10, "model")) != nullptr;
       }},
      {"frames", scoreFrames},
      {"CloseSession", [](World& w) { return Orv_VAD_CloseSession(w.session) == 0; }},
      {"Destroy", [](World& w) { return Orv_Context_Destroy(w.context) == 0; }}}},
};

// What a life's process found out, in memory that it shares with the test.
struct Report {
  const char* failed;  // what went wrong; null after a life as it must be
  long calls[kFaults];
  long liveBlocks;
  bool stepFailed;
  float output[4410];
};

void live(const Life& life, size_t faultyStep, World& world, Report& report) {
  auto& state = injector();
  // What the process has once, for its first exception and message.
  Orv_NC_CloseSession(nullptr);
  Orv_Context_Destroy(nullptr);
  const long blocksBefore = state.liveBlocks;
  for (size_t at = 0; at < life.steps.size(); ++at) {
    report.failed = life.steps[at].name;
    state.armed = at == faultyStep;
    bool succeeded = life.steps[at].call(world);
    state.armed = false;
    if (at == faultyStep) {
      report.stepFailed = !succeeded;
      for (size_t kind = 0; kind < kFaults; ++kind)
        report.calls[kind] = state.calls[kind];
    }
    if (!succeeded && !life.steps[at].call(world)) return;
  }
  report.liveBlocks = state.liveBlocks - blocksBefore;
  std::copy(world.output.begin(), world.output.end(), report.output);
  report.failed = nullptr;
}

class LibraryFaults : public testing::TestWithParam<size_t> {
 protected:
  LibraryFaults() {
    const TestModel cleaner = makeModel({.version = "0.0.5", .compress = 2});
    dir_.write("cleaner-weights.bin", cleaner.weights().bytes());
    dir_.write("cleaner.ctl", "WEIGHT cleaner-weights.bin\nORVEL_COMPRESS_RATE_v0_0_5 2\n");
    // Files written a moment ago are not shared.
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    world_.folder = dir_.path();
    world_.control = "ORVEL_VAD_ENABLE_STATE_RESET_v0_0_1 TRUE\n";
    world_.weights = makeVadModel(16000).weights().bytes();
    world_.input = toFloat(speechLike(48000, 0.1));
    report_ = static_cast<Report*>(
        mmap(nullptr, sizeof *report_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  }
  ~LibraryFaults() override { munmap(report_, sizeof *report_); }

  // A process for each life: every one begins with what a library does once.
  Report run(const Life& life, size_t step, Fault kind, long call, bool andAllLater) {
    std::cout << std::flush;
    std::memset(static_cast<void*>(report_), 0, sizeof *report_);
    report_->failed = "start";
    const pid_t child = fork();
    if (child == 0) {
      const int nowhere = open("/dev/null", O_WRONLY);
      dup2(nowhere, 1);
      dup2(nowhere, 2);
      alarm(60);
      auto& state = injector();
      state.kind = kind;
      state.failing = call;
      state.andAllLater = andAllLater;
      live(life, step, world_, *report_);
      _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFSIGNALED(status))
      signal_ = strsignal(WTERMSIG(status));
    else
      signal_.clear();
    return *report_;
  }

  std::string problemOf(const Report& got, const Report& expected) const {
    if (!signal_.empty()) return signal_ + " in " + got.failed;
    if (got.failed != nullptr) return got.failed + std::string(" fails again");
    if (got.liveBlocks > expected.liveBlocks)
      return "leaks " + std::to_string(got.liveBlocks - expected.liveBlocks) + " blocks";
    return std::memcmp(got.output, expected.output, sizeof got.output) == 0 ? "" : "other output";
  }

  TempDir dir_;
  World world_;
  Report* report_;
  std::string signal_;
};

TEST_P(LibraryFaults, EveryCall) {
  const Life& life = kLives[GetParam()];
  for (size_t step = 0; step < life.steps.size(); ++step) {
    const Report expected = run(life, step, Fault::kMemory, 0, false);
    ASSERT_EQ(expected.failed, nullptr) << expected.failed;
    std::string counts;
    for (size_t kind = 0; kind < kFaults; ++kind) {
      if (expected.calls[kind] == 0) continue;
      counts += " " + std::to_string(expected.calls[kind]) + " " + kFaultNames[kind];
      for (const bool andAllLater : {false, true}) {
        for (long call = 1; call <= expected.calls[kind]; ++call) {
          const Report got = run(life, step, static_cast<Fault>(kind), call, andAllLater);
          EXPECT_EQ(problemOf(got, expected), "")
              << life.steps[step].name << ", " << kFaultNames[kind] << " " << call
              << (andAllLater ? " and later" : "");
        }
      }
    }
    std::cout << life.name << ", " << life.steps[step].name << ":" << counts << std::endl;
  }
}
INSTANTIATE_TEST_SUITE_P(Lives, LibraryFaults, testing::Range<size_t>(0, std::size(kLives)));

}  // namespace
}  // namespace orvel_test
