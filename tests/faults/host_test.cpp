// What a host may do around the library: exit, unload, fork, lose its standard error, change the
// floating-point mode. Each in a process of its own.
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>
#if defined(__SSE2__)
#include <xmmintrin.h>
#endif

#include <array>
#include <atomic>
#include <cerrno>
#include <cfenv>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/library.h"
#include "tests/support/sdk.h"
#include "tests/support/signals.h"

namespace orvel_test {
namespace {

using namespace std::chrono_literals;

// The exit code of a process that runs the body; 128 and the signal when one ended it.
int codeOf(const std::function<void()>& body) {
  std::cout << std::flush;
  const pid_t child = fork();
  if (child == 0) {
    alarm(60);
    body();
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

class Host : public testing::Test {
 protected:
  Host() {
    dir_.write("model.bin", makeModel({.version = "0.0.5", .compress = 2}).weights().bytes());
    dir_.write("model.ctl", "WEIGHT model.bin\nORVEL_COMPRESS_RATE_v0_0_5 2\n");
  }
  void* makeContext() const {
    void* context = Orv_Context_Create(dir_.path().c_str());
    return Orv_Context_SetModel(context, "model.ctl", "model") == 0 ? context : nullptr;
  }
  static void* openIn(void* context) {
    return Orv_Context_CreateCleaner(context, 48000, 16000, 10, "model");
  }
  // In the global instance, which must be initialised.
  void* openGlobal() const {
    Capture quiet;
    Orv_SDK_SetModel("model.ctl", "model");
    return Orv_NC_CreateSession(48000, 16000, 10, "model");
  }
  std::vector<int16_t> cleaned(void* session) const {
    return session == nullptr ? std::vector<int16_t>{} : cleanStream(session, input_, 480, 160);
  }

  TempDir dir_;
  std::vector<int16_t> input_ = speechLike(48000, 0.1);
};

TEST_F(Host, ExitsWhileThreadsCleanAndOpenSessions) {
  for (int round = 0; round < 10; ++round) {
    EXPECT_EQ(codeOf([&] {
                Orv_SDK_GlobalInit(dir_.path().c_str());
                void* global = openGlobal();
                void* context = makeContext();
                void* own = openIn(context);
                for (const auto& work : std::initializer_list<std::function<void()>>{
                         [=, this] { cleaned(global); }, [=, this] { cleaned(own); },
                         [=] { openIn(context); }})
                  std::thread([=] {
                    while (true)
                      work();
                  }).detach();
                std::this_thread::sleep_for(5ms * (round + 1));
                std::exit(0);
              }),
              0);
  }
}

TEST_F(Host, UnloadingLeavesTheSessions) {
  Dl_info info{};
  ASSERT_NE(dladdr(reinterpret_cast<void*>(&Orv_SDK_GetVersion), &info), 0);
  const std::string copy = dir_.file("copy.so");
  std::filesystem::copy_file(std::filesystem::canonical(info.dli_fname), copy);
  std::vector<void*> sessions;
  int16_t frame[480] = {};
  void* library = nullptr;
#define FIND(name) reinterpret_cast<decltype(&name)>(dlsym(library, #name))
  for (int round = 0; round < 3; ++round) {
    library = dlopen(copy.c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    for (void* session : sessions)
      EXPECT_EQ(FIND(Orv_NC_CleanAmbientNoiseInt16)(session, frame, 480, frame, 160), 0);
    void* context = FIND(Orv_Context_Create)(dir_.path().c_str());
    ASSERT_EQ(FIND(Orv_Context_SetModel)(context, "model.ctl", "model"), 0);
    sessions.push_back(FIND(Orv_Context_CreateCleaner)(context, 48000, 16000, 10, "model"));
    const auto clean = FIND(Orv_NC_CleanAmbientNoiseInt16);
    EXPECT_EQ(dlclose(library), 0);
    EXPECT_EQ(clean(sessions.back(), frame, 480, frame, 160), 0);
  }
  EXPECT_NE(sessions[0], sessions[1]) << "no handle is issued twice";
}

TEST_F(Host, AChildUsesNewContextsWhileThreadsOfItsParentOpenSessions) {
  const std::vector<int16_t> expected = cleaned(openIn(makeContext()));
  EXPECT_EQ(codeOf([&] {
              for (int i = 0; i < 3; ++i) {
                std::thread([&] {
                  while (true) {
                    void* context = makeContext();
                    openIn(context);
                    Orv_Context_Destroy(context);
                  }
                }).detach();
              }
              for (int round = 0; round < 30; ++round) {
                std::this_thread::sleep_for(3ms);
                const int code = codeOf([&] {
                  if (cleaned(openIn(makeContext())) != expected) _exit(1);
                });
                if (code != 0) _exit(code);
              }
            }),
            0);
}

TEST_F(Host, AForkWaitsForCallsThatMayLock) {
  EXPECT_EQ(codeOf([] {
              enum Stage { kOutside, kInside, kLeaving };
              static std::atomic<Stage> stage{kOutside};
              void* context = Orv_Context_Create("");
              const auto linger = [](void*, int, const char*) {
                stage = kInside;
                std::this_thread::sleep_for(100ms);
                stage = kLeaving;
              };
              Orv_Context_SetMessageHandler(context, linger, nullptr);
              std::thread inside([=] { Orv_Context_SetModel(context, "none.ctl", "none"); });
              while (stage != kInside)
                std::this_thread::yield();
              const int code = codeOf([] { _exit(stage == kLeaving ? 0 : 1); });
              inside.join();
              _exit(code);
            }),
            0);
}

// Where a refused frame's message goes: nobody reads it, nobody takes it, or a thread holds the stream.
TEST_F(Host, RefusedFramesOfTheGlobalInstanceNeitherEndNorBlockTheHost) {
  enum Case { kClosedPipe, kFullPipe, kLockedStream, kThrowingStream, kClosed };
  for (const Case where : {kClosedPipe, kFullPipe, kLockedStream, kThrowingStream, kClosed}) {
    EXPECT_EQ(codeOf([&] {
                Orv_SDK_GlobalInit(dir_.path().c_str());
                void* session = openGlobal();
                std::array<int, 2> ends{};
                if (pipe(ends.data()) != 0) _exit(1);
                dup2(ends[1], STDERR_FILENO);
                if (where == kClosedPipe) close(ends[0]);
                if (where == kFullPipe) {
                  fcntl(STDERR_FILENO, F_SETFL, O_NONBLOCK);
                  while (write(STDERR_FILENO, "full", 4) > 0) {
                  }
                  fcntl(STDERR_FILENO, F_SETFL, 0);
                }
                if (where == kLockedStream) std::thread([] { flockfile(stderr); }).join();
                if (where == kThrowingStream) {
                  std::cerr.setstate(std::ios::badbit);
                  try {
                    std::cerr.exceptions(std::ios::badbit);
                  } catch (const std::ios::failure&) {
                  }
                }
                if (where == kClosed) close(STDERR_FILENO);
                errno = 77;
                int16_t frame[480] = {};
                for (int i = 0; i < 3; ++i)
                  if (clean(session, frame, 479, frame, 160) != 1) _exit(2);
                if (clean(nullptr, frame, 480, frame, 160) != 2) _exit(3);
                sigset_t pending;
                sigpending(&pending);
                if (errno != 77 || sigismember(&pending, SIGPIPE) != 0) _exit(4);
                if (clean(session, frame, 480, frame, 160) != 0) _exit(5);
              }),
              0)
        << where;
  }
}

TEST_F(Host, RefusedFramesAreToldAtALimitedRateAndNeverByContexts) {
  Sdk sdk;
  ASSERT_EQ(sdk.load("cleaner", makeModel({})), 0);
  void* global = Orv_NC_CreateSession(16000, 16000, 10, "cleaner");
  void* own = openIn(makeContext());
  int16_t frame[480] = {};
  Capture capture;
  for (int i = 0; i < 1000; ++i)
    EXPECT_EQ(clean(own, frame, 479, frame, 160), 1);
  EXPECT_EQ(capture.err(), "");
  for (int i = 0; i < 3000; ++i)
    EXPECT_EQ(clean(global, frame, 159, frame, 160), 1);
  const std::string text = capture.err();
  const std::string one =
      "ERROR input dataSize or output dataSize or pointers of inputData output Data is wrong\n "
      "input "
      "size must be 160\n output size must be 160\n";
  EXPECT_EQ(text.rfind(one, 0), 0U) << text.substr(0, 200);
  EXPECT_GE(text.size() / one.size(), 1000U);
  EXPECT_LE(text.size() / one.size(), 1200U);
}

// The library's own mode holds from loading to the last frame; afterwards the host's is back.
// The C library's functions tell of the x87 unit alone.
int vectorMode() {
#if defined(__SSE2__)
  return static_cast<int>(_mm_getcsr());
#else
  return 0;
#endif
}

TEST_F(Host, FloatingPointModeIsItsOwn) {
  const std::vector<int16_t> expected = cleaned(openIn(makeContext()));
  const std::pair<const char*, std::function<void()>> modes[] = {
      {"up", [] { std::fesetround(FE_UPWARD); }},
      {"down", [] { std::fesetround(FE_DOWNWARD); }},
      {"towards zero", [] { std::fesetround(FE_TOWARDZERO); }},
      {"traps",
       [] { feenableexcept(FE_DIVBYZERO | FE_INVALID | FE_OVERFLOW | FE_UNDERFLOW | FE_INEXACT); }},
  };
  for (const auto& [name, set] : modes) {
    EXPECT_EQ(codeOf([&, &change = set] {
                change();
                const auto mode = [] {
                  return std::array{std::fegetround(), fegetexcept(),
                                    std::fetestexcept(FE_ALL_EXCEPT), vectorMode()};
                };
                const auto before = mode();
                Orv_SDK_GlobalInit(dir_.path().c_str());
                const bool same =
                    cleaned(openIn(makeContext())) == expected && cleaned(openGlobal()) == expected;
                _exit(!same ? 1 : mode() != before ? 2 : 0);
              }),
              0)
        << name;
  }
}

// The environment must not make the arithmetic print. Runs again with it, to be read before the first call.
TEST_F(Host, PrintsNothingOfItsOwn) {
  if (std::getenv("MKL_VERBOSE") == nullptr) {
    const std::string command = "MKL_VERBOSE=1 '" +
                                std::filesystem::read_symlink("/proc/self/exe").string() +
                                "' --gtest_filter=Host.PrintsNothingOfItsOwn > /dev/null";
    EXPECT_EQ(std::system(command.c_str()), 0);
    return;
  }
  Capture capture;
  EXPECT_FALSE(cleaned(openIn(makeContext())).empty());
  EXPECT_EQ(capture.out() + capture.err(), "");
}

// A network whose loop is too strong: it is cleared whenever its state has grown out of all bounds.
TEST_F(Host, AStateThatIsNoLongerFiniteIsClearedAndCounted) {
  const auto strong = [](TestModel model) {
    for (Dense* layer : {&model.linear[0], &model.nonLinear[0]})
      for (float& weight : layer->data)
        weight *= 40.0F;
    return model.weights().bytes();
  };
  orvel::Library library;
  load(library, "cleaner", strong(makeModel({.version = "0.0.5", .compress = 2})),
       {{"ORVEL_COMPRESS_RATE_v0_0_5", "2"}});
  load(library, "detector", strong(makeVadModel(16000)));
  const std::vector<float> input = toFloat(speechLike(16000, 8.0));
  for (const bool cleans : {true, false}) {
    const auto open = [&, context = library.handle()] {
      return cleans ? Orv_Context_CreateCleaner(context, 16000, 16000, 10, "cleaner")
                    : Orv_Context_CreateDetector(context, 16000, 10, "detector");
    };
    void* session = open();
    void* fresh = nullptr;
    std::array<float, 160> out{}, outOfFresh{};
    const auto process = [&](void* handle, size_t frame, std::array<float, 160>& to) {
      return cleans ? clean(handle, &input[160 * frame], 160, to.data(), 160)
                    : Orv_VAD_ProcessFloat(handle, &input[160 * frame], 160, to.data());
    };
    OrvSessionStatistics counts{};
    counts.size = sizeof counts;
    uint64_t resets = 0;
    for (size_t frame = 0; frame < 800; ++frame) {
      ASSERT_EQ(process(session, frame, out), 0);
      ASSERT_TRUE(std::all_of(out.begin(), out.end(), [](float x) { return std::isfinite(x); }));
      if (fresh != nullptr) {
        ASSERT_EQ(process(fresh, frame, outOfFresh), 0);
        ASSERT_EQ(out, outOfFresh) << "as from a new session, frame " << frame;
      }
      ASSERT_EQ(Orv_Session_GetStatistics(session, &counts), 0);
      ASSERT_EQ(counts.frames, frame + 1);
      if (counts.stateResets > resets) fresh = open();
      resets = counts.stateResets;
    }
    EXPECT_GT(resets, 0U);
    EXPECT_EQ(counts.failedFrames, 0U);
    // No more than the caller has room for, and not less than size and frames.
    counts.size = offsetof(OrvSessionStatistics, failedFrames);
    counts.stateResets = 77;
    EXPECT_EQ(Orv_Session_GetStatistics(session, &counts), 0);
    EXPECT_EQ(counts.stateResets, 77U);
    --counts.size;
    EXPECT_EQ(Orv_Session_GetStatistics(session, &counts), 1);
    EXPECT_EQ(Orv_Session_GetStatistics(session, nullptr), 1);
  }
}

}  // namespace
}  // namespace orvel_test
