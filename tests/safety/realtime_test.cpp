// The audio calls allocate nothing, take no lock and make no system call once a session exists.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <mutex>
#include <string>
#include <vector>

#include "tests/safety/guard.h"
#include "tests/support/sdk.h"
#include "tests/support/signals.h"

namespace orvel_test {
namespace {

constexpr int kRates[] = {8000, 12000, 16000, 24000, 32000, 44100, 48000, 88200, 96000};

// Every stage that a key can switch on, so that no branch is left out.
Keys allStages(const std::string& suffix) {
  Keys keys;
  for (const char* name :
       {"ENABLE_CLIP_FIX", "ENABLE_THRESH_CUT", "ENABLE_RM_THRESHOLD", "SMOOT_RM_MODIFY",
        "HIGH_FREQ_SMOOT", "SKIP_FRAME", "VOLUME_UP", "ENABLE_RESCALE", "VAD_ENABLE_STATE_RESET"}) {
    keys["ORVEL_" + std::string(name) + suffix] = "TRUE";
  }
  keys["ORVEL_SMOOT_COEF" + suffix] = "0.6";
  keys["ORVEL_VOLUME_UP_PERCENT" + suffix] = "40";
  keys["ORVEL_COMPRESS_RATE_v0_0_5"] = "2";
  return keys;
}

struct Case {
  std::string name;
  TestModel model;
  Keys keys;
  bool voice() const { return model.generation() == 0; }
};

std::vector<Case> everyVersion() {
  std::vector<Case> cases;
  for (const char generation : {'1', '2', '3', '4', '5'}) {
    const std::string version = std::string("0.0.") + generation;
    const std::string suffix = std::string("_v0_0_") + generation;
    Shape shape{.version = version, .band = 64, .compress = generation >= '4' ? 2 : 0};
    const TestModel model = makeModel(shape);
    cases.push_back({"plain" + suffix, model, {{"ORVEL_COMPRESS_RATE_v0_0_5", "2"}}});
    cases.push_back({"stages" + suffix, model, allStages(suffix)});
  }
  cases.push_back({"hamming", cases.front().model, {{"ORVEL_WINDOW_AFTER_v0_0_1", "HAMMING"}}});
  cases.push_back(
      {"nowindow", cases.front().model, {{"ORVEL_ENABLE_WINDOW_AFTER_v0_0_1", "FALSE"}}});
  cases.push_back({"voice", makeVadModel(), {}});
  cases.push_back({"resetting", makeVadModel(16000), allStages("_v0_0_1")});
  return cases;
}

// Speech, a loud passage, a fade into silence, numbers that are none: what a stream may bring.
std::vector<float> roughStream(int rate, double seconds) {
  std::vector<float> samples = toFloat(speechLike(rate, seconds));
  const size_t part = samples.size() / 8;
  for (size_t i = 0; i < part; ++i) {
    samples[part + i] *= 30.0F;
    samples[3 * part + i] *= std::exp(-static_cast<float>(i) / 20.0F);
    samples[4 * part + i] = 0.0F;
    samples[5 * part + i] = i % 3 == 0 ? std::numeric_limits<float>::quiet_NaN() : 1e30F;
  }
  return samples;
}

std::vector<int16_t> toInt16(const std::vector<float>& samples) {
  std::vector<int16_t> result;
  for (const float sample : samples) {
    const float scaled = std::isfinite(sample) ? sample * 32767.0F : 0.0F;
    result.push_back(static_cast<int16_t>(std::clamp(scaled, -32767.0F, 32767.0F)));
  }
  return result;
}

int call(void* session, bool voice, const float* in, size_t inCount, std::vector<float>& out) {
  return voice ? Orv_VAD_ProcessFloat(session, in, static_cast<uint32_t>(inCount), out.data())
               : clean(session, in, inCount, out.data(), out.size());
}
int call(void* session, bool voice, const int16_t* in, size_t inCount, std::vector<int16_t>& out) {
  float score = 0.0F;
  return voice ? Orv_VAD_ProcessInt16(session, in, static_cast<uint32_t>(inCount), &score)
               : clean(session, in, inCount, out.data(), out.size());
}

struct Stream {
  void* session;
  bool voice;
  size_t inSize, outSize;
};

template <class Sample>
void expectQuietStream(const Stream& stream, const std::vector<Sample>& samples) {
  std::vector<Sample> out(std::max<size_t>(stream.outSize, 1));
  for (size_t at = 0; at + stream.inSize <= samples.size(); at += stream.inSize) {
    int status = -1;
    const Misdeeds misdeeds = misdeedsOf([&] {
      status = call(stream.session, stream.voice, samples.data() + at, stream.inSize, out);
    });
    ASSERT_EQ(status, 0);
    ASSERT_TRUE(misdeeds.none()) << "frame " << at / stream.inSize << ": " << misdeeds;
  }
}

Stream openStream(const Case& test, int inRate, int outRate, int ms) {
  const char* name = test.name.c_str();
  void* session = test.voice() ? Orv_VAD_CreateSession(inRate, ms, name)
                               : Orv_NC_CreateSession(inRate, outRate, ms, name);
  EXPECT_NE(session, nullptr) << name;
  return {session, test.voice(), samplesPerFrame(inRate, ms), samplesPerFrame(outRate, ms)};
}

// Each stream has a thread of its own: what a library does once per thread shows in its first frame.
#define ON_WATCHED_THREAD(body) \
  if (!onWatchedThread(body)) GTEST_SKIP() << "no system-call filter on this machine"

TEST(RealTime, EveryVersionAndStageFromTheFirstFrameOn) {
  for (const Case& test : everyVersion()) {
    SCOPED_TRACE(test.name);
    Sdk sdk;
    ASSERT_EQ(sdk.load(test.name, test.model, test.keys), 0);
    const int rate = test.model.rate;
    const std::vector<float> samples = roughStream(rate, 4.0);
    const std::vector<int16_t> integers = toInt16(samples);
    Capture quiet;
    const Stream first = openStream(test, rate, rate, 10);
    const Stream second = openStream(test, rate, rate, 10);
    ON_WATCHED_THREAD([&] { expectQuietStream(first, samples); });
    ON_WATCHED_THREAD([&] { expectQuietStream(second, integers); });
    // Created, first used and moved to another thread.
    const std::vector<float> start(samples.begin(), samples.begin() + rate / 10);
    Stream moved{};
    ON_WATCHED_THREAD([&] {
      moved = openStream(test, rate, rate, 10);
      expectQuietStream(moved, start);
    });
    ON_WATCHED_THREAD([&] { expectQuietStream(moved, start); });
  }
}

TEST(RealTime, EveryRatePairAndDuration) {
  Sdk sdk;
  const Case cleaner{"cleaner", makeModel({.version = "0.0.5", .compress = 2}), {}};
  const Case detector{"detector", makeVadModel(), {}};
  ASSERT_EQ(sdk.load(cleaner.name, cleaner.model, cleaner.keys), 0);
  ASSERT_EQ(sdk.load(detector.name, detector.model, detector.keys), 0);
  Capture quiet;
  for (const int inRate : kRates) {
    const std::vector<float> samples = roughStream(inRate, 0.5);
    for (const int outRate : kRates) {
      // All four durations at one output rate, two of them at the others.
      for (const int ms : {10, 20, 30, 40}) {
        if (outRate != 48000 && ms != 10 && ms != 30) continue;
        SCOPED_TRACE(std::to_string(inRate) + " to " + std::to_string(outRate) + ", " +
                     std::to_string(ms) + " ms");
        const Stream stream = openStream(cleaner, inRate, outRate, ms);
        ON_WATCHED_THREAD([&] { expectQuietStream(stream, samples); });
        Orv_NC_CloseSession(stream.session);
        if (outRate != 48000) continue;
        const Stream voice = openStream(detector, inRate, outRate, ms);
        ON_WATCHED_THREAD([&] { expectQuietStream(voice, samples); });
        Orv_VAD_CloseSession(voice.session);
      }
    }
  }
}

// Opens a model for what it is made for; the other kind of session is refused by its frames.
Stream openShipped(const std::string& name) {
  void* session = Orv_NC_CreateSession(48000, 48000, 10, name.c_str());
  uint32_t latency = 0;
  if (Orv_NC_GetLatency(session, &latency) == 0) return {session, false, 480, 480};
  Orv_VAD_CloseSession(session);
  return {Orv_VAD_CreateSession(48000, 10, name.c_str()), true, 480, 0};
}

TEST(RealTime, ShippedModels) {
  const std::string folder = ORVEL_MODELS_DIR;
  const std::vector<float> samples = roughStream(48000, 2.0);
  ASSERT_EQ(Orv_SDK_GlobalInit(folder.c_str()), 0);
  int models = 0;
  {
    Capture quiet;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      if (entry.path().extension() != ".ctl") continue;
      const std::string name = entry.path().stem();
      SCOPED_TRACE(name);
      ASSERT_EQ(Orv_SDK_SetModel(entry.path().filename().c_str(), name.c_str()), 0);
      const Stream stream = openShipped(name);
      ASSERT_NE(stream.session, nullptr);
      ON_WATCHED_THREAD([&] { expectQuietStream(stream, samples); });
      ++models;
    }
  }
  EXPECT_EQ(Orv_SDK_GlobalDestroy(), 0);
  if (models == 0) GTEST_SKIP() << "no models in " << folder;
}

// A frame that is turned down says so on standard error, which takes system calls; nothing else.
TEST(RealTime, RefusedFramesTouchNeitherHeapNorLocks) {
  Sdk sdk;
  ASSERT_EQ(sdk.load("cleaner", makeModel({})), 0);
  ASSERT_EQ(sdk.load("detector", makeVadModel()), 0);
  Capture quiet;
  void* cleaner = Orv_NC_CreateSession(16000, 16000, 10, "cleaner");
  void* detector = Orv_VAD_CreateSession(8000, 10, "detector");
  std::vector<float> frame(160);
  float score = 0.0F;
  uint32_t latency = 0;
  struct Refusal {
    const char* what;
    std::function<int()> call;
    int status;
  };
  const Refusal refusals[] = {
      {"count",
       [&] { return Orv_NC_CleanAmbientNoiseFloat(cleaner, frame.data(), 159, frame.data(), 160); },
       1},
      {"pointer",
       [&] { return Orv_NC_CleanAmbientNoiseFloat(cleaner, nullptr, 160, frame.data(), 160); }, 1},
      {"kind",
       [&] {
         return Orv_NC_CleanAmbientNoiseFloat(detector, frame.data(), 160, frame.data(), 160);
       },
       2},
      {"handle", [&] { return Orv_VAD_ProcessFloat(&score, frame.data(), 80, &score); }, 2},
      {"score", [&] { return Orv_VAD_ProcessFloat(detector, frame.data(), 80, nullptr); }, 1},
      {"limit", [&] { return Orv_NC_SetAttenuationLimit(cleaner, -1.0F); }, 1},
      {"latency", [&] { return Orv_NC_GetLatency(detector, &latency); }, 2},
  };
  for (const Refusal& refusal : refusals) {
    SCOPED_TRACE(refusal.what);
    int status = -1;
    const Misdeeds misdeeds = misdeedsOf([&] { status = refusal.call(); });
    EXPECT_EQ(status, refusal.status);
    EXPECT_EQ(misdeeds.heapCalls, 0U) << misdeeds;
    EXPECT_EQ(misdeeds.locks, 0U) << misdeeds;
  }
}

// The counters see what they are there for, in this program and inside the shared library.
TEST(RealTime, CountersCatchPlantedFaults) {
  static std::mutex mutex;
  EXPECT_EQ(misdeedsOf([] { keep(std::malloc(10)); }).heapCalls, 1U);
  EXPECT_GE(misdeedsOf([] { keep(new int(1)); }).heapCalls, 1U);
  EXPECT_EQ(misdeedsOf([] { const std::lock_guard lock(mutex); }).locks, 1U);
  EXPECT_TRUE(misdeedsOf([] {}).none());

  Sdk sdk;
  ASSERT_EQ(sdk.load("cleaner", makeModel({})), 0);
  Capture quiet;
  Misdeeds direct, creating, loading;
  ON_WATCHED_THREAD([&] {
    direct = misdeedsOf([] { syscall(SYS_getppid); });
    creating = misdeedsOf([] { Orv_NC_CreateSession(16000, 48000, 10, "cleaner"); });
    loading = misdeedsOf([] { Orv_SDK_SetModel("missing.ctl", "missing"); });
  });
  EXPECT_EQ(direct.systemCalls, 1U);
  EXPECT_EQ(direct.firstSystemCall, SYS_getppid);
  EXPECT_GT(creating.heapCalls, 0U);
  EXPECT_GT(creating.locks, 0U);
  EXPECT_GT(loading.systemCalls, 0U);
}

}  // namespace
}  // namespace orvel_test
