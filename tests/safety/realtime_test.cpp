// The audio calls allocate nothing, take no lock and make no system call once a session exists.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "tests/safety/guard.h"
#include "tests/support/library.h"
#include "tests/support/sdk.h"
#include "tests/support/signals.h"
#include "tests/support/versions.h"

namespace orvel_test {
namespace {

struct Case {
  std::string name;
  TestModel model;
  Keys keys;
};

// Every version as it is and with every stage that a key can switch on and off, so that no branch is
// left out.
std::vector<Case> everyVersion() {
  std::vector<Case> cases;
  for (const CleanerTraits* version : cleanerVersions()) {
    Shape shape = shapeOf(*version);
    shape.band = 64;
    const TestModel model = isDetector(*version) ? makeVadModel(16000) : makeModel(shape);
    const std::string name = version->version;
    cases.push_back({"plain " + name, model, {}});
    cases.push_back({"with all stages " + name, model, allStages(*version)});
    cases.push_back({"without stages " + name, model, allStages(*version, false)});
  }
  cases.push_back({"voice at 8 kHz", makeVadModel(), {}});
  return cases;
}

// Speech, a loud passage, a fade into silence, NaN: what a stream may bring.
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

// A session of either kind for frames.
struct Stream {
  Stream(const orvel::Library& library, const orvel::Model& model, int inRate, int outRate,
         int ms) {
    if (model.kind == orvel::ModelKind::voiceActivity) {
      detector.emplace(library, orvel::DetectorOptions{inRate, ms, model.name});
    } else {
      cleaner.emplace(library, orvel::CleanerOptions{inRate, outRate, ms, model.name});
    }
  }
  std::optional<orvel::Cleaner> cleaner;
  std::optional<orvel::Detector> detector;
};

template <class Sample>
void expectQuietStream(Stream& stream, const std::vector<Sample>& samples) {
  const size_t size = stream.cleaner ? stream.cleaner->inputSize() : stream.detector->frameSize();
  std::vector<Sample> out(stream.cleaner ? stream.cleaner->outputSize() : 0);
  for (size_t at = 0; at + size <= samples.size(); at += size) {
    const auto frame = std::span(samples).subspan(at, size);
    const Misdeeds misdeeds = misdeedsOf([&] {
      if (stream.cleaner) stream.cleaner->process(frame, std::span<Sample>(out));
      if (stream.detector) stream.detector->process(frame);
    });
    ASSERT_TRUE(misdeeds.none()) << "frame " << at / size << ": " << misdeeds;
  }
}

// Each stream has a thread of its own: what a library does once per thread shows in its first frame.
#define ON_WATCHED_THREAD(body) \
  if (!onWatchedThread(body)) FAIL() << "no system-call filter (seccomp) on this machine"

TEST(RealTime, EveryVersionAndStageFromTheFirstFrameOn) {
  for (const Case& test : everyVersion()) {
    SCOPED_TRACE(test.name);
    orvel::Library library;
    const orvel::Model model = load(library, test.name, test.model, test.keys);
    const int rate = model.sampleRate;
    const std::vector<float> samples = roughStream(rate, 4.0);
    const std::vector<int16_t> integers = toInt16(samples);
    Stream first(library, model, rate, rate, 10);
    Stream second(library, model, rate, rate, 10);
    ON_WATCHED_THREAD([&] { expectQuietStream(first, samples); });
    ON_WATCHED_THREAD([&] { expectQuietStream(second, integers); });
    // Created, first used and moved to another thread.
    const std::vector<float> start(samples.begin(), samples.begin() + rate / 10);
    std::optional<Stream> moved;
    ON_WATCHED_THREAD([&] {
      moved.emplace(library, model, rate, rate, 10);
      expectQuietStream(*moved, start);
    });
    ON_WATCHED_THREAD([&] { expectQuietStream(*moved, start); });
  }
}

TEST(RealTime, EveryRatePairAndDuration) {
  orvel::Library library;
  const orvel::Model cleaner =
      load(library, "cleaner", makeModel({.version = "0.0.5", .compress = 2}));
  const orvel::Model detector = load(library, "detector", makeVadModel());
  for (const int inRate : orvel::kSampleRates) {
    const std::vector<float> samples = roughStream(inRate, 0.5);
    for (const int outRate : orvel::kSampleRates) {
      // All four durations at one output rate, two of them at the others.
      for (const int ms : orvel::kFrameDurations) {
        if (outRate != 48000 && ms != 10 && ms != 30) continue;
        SCOPED_TRACE(std::to_string(inRate) + " to " + std::to_string(outRate) + ", " +
                     std::to_string(ms) + " ms");
        Stream stream(library, cleaner, inRate, outRate, ms);
        ON_WATCHED_THREAD([&] { expectQuietStream(stream, samples); });
        if (outRate != 48000) continue;
        Stream voice(library, detector, inRate, outRate, ms);
        ON_WATCHED_THREAD([&] { expectQuietStream(voice, samples); });
      }
    }
  }
}

TEST(RealTime, ShippedModels) {
  const std::vector<float> samples = roughStream(48000, 2.0);
  orvel::Library library(ORVEL_MODELS_DIR);
  int models = 0;
  for (const auto& entry : std::filesystem::directory_iterator(ORVEL_MODELS_DIR)) {
    if (entry.path().extension() != ".ctl") continue;
    SCOPED_TRACE(entry.path());
    Stream stream(library, library.loadModel(entry.path().filename()), 48000, 48000, 10);
    ON_WATCHED_THREAD([&] { expectQuietStream(stream, samples); });
    ++models;
  }
  EXPECT_GT(models, 0) << "no models in " << ORVEL_MODELS_DIR;
}

// More sessions than one group of the batch holds, of every version, from their first frame on.
TEST(RealTime, Batches) {
  orvel::Library library;
  std::vector<orvel::Cleaner> cleaners;
  for (const CleanerTraits* version : noiseCleaners())
    load(library, version->version, makeModel(shapeOf(*version)), allStages(*version));
  for (int i = 0; i < 100; ++i) {
    for (const CleanerTraits* version : noiseCleaners()) {
      const int outRate = i % 10 == 0 ? 48000 : 16000;
      cleaners.emplace_back(library, orvel::CleanerOptions{16000, outRate, 10, version->version});
    }
  }
  std::vector<float> samples = roughStream(16000, 1.0);
  std::vector<std::vector<float>> frames(cleaners.size());
  std::vector<void*> sessions;
  std::vector<float*> outputs;
  std::vector<uint32_t> inCounts(cleaners.size(), 160), outCounts;
  for (std::size_t i = 0; i < cleaners.size(); ++i) {
    frames[i].resize(cleaners[i].outputSize());
    sessions.push_back(cleaners[i].handle());
    outputs.push_back(frames[i].data());
    outCounts.push_back(static_cast<uint32_t>(frames[i].size()));
  }
  std::vector<int> statuses(cleaners.size());
  Misdeeds misdeeds;
  int status = 0;
  ON_WATCHED_THREAD([&] {
    std::vector<const float*> inputs(cleaners.size());
    for (size_t at = 0; at + 160 <= samples.size() && status == 0 && misdeeds.none(); at += 160) {
      std::fill(inputs.begin(), inputs.end(), samples.data() + at);
      misdeeds = misdeedsOf([&] {
        status = Orv_NC_CleanBatchFloat(static_cast<uint32_t>(sessions.size()), sessions.data(),
                                        inputs.data(), inCounts.data(), outputs.data(),
                                        outCounts.data(), statuses.data());
      });
    }
  });
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(misdeeds.none()) << misdeeds;
}

// The C++ streams, fed with blocks of changing length from the first one on.
TEST(RealTime, StreamsOfAnyBlocks) {
  orvel::Library library;
  load(library, "cleaner", makeModel({}));
  load(library, "detector", makeVadModel());
  for (const int rate : {16000, 44100}) {
    orvel::StreamCleaner cleaner(library, {.rate = rate, .channels = 2});
    orvel::VoiceDetector voice(library, {.rate = rate, .channels = 2});
    std::vector<float> samples = roughStream(rate, 1.0);
    std::vector<int16_t> integers = toInt16(samples);
    std::vector<float> scores(200);
    int given = 0;
    const auto stream = [&](auto& audio) {
      using Sample = std::decay_t<decltype(audio[0])>;
      size_t at = 0;
      for (const size_t frames : {1, 441, 440, 0, 1000, 7, 4000}) {
        const std::span<Sample> block(audio.data() + at, 2 * frames);
        at += block.size();
        voice.process(std::span<const Sample>(block), [&](float) { ++given; });
        voice.process(std::span<const Sample>(block), scores);
        cleaner.process(block, block);
      }
      const std::array places{audio.data(), audio.data() + 3000};
      cleaner.process(places, places, 2999);
      cleaner.setAttenuationLimit(12.0F);
      cleaner.flush(std::span<Sample>(audio).first(2 * 777));
      cleaner.reset();
      voice.flush(scores);
      voice.reset();
    };
    Misdeeds first, second;
    ON_WATCHED_THREAD([&] { first = misdeedsOf([&] { stream(samples); }); });
    ON_WATCHED_THREAD([&] { second = misdeedsOf([&] { stream(integers); }); });
    EXPECT_TRUE(first.none()) << first;
    EXPECT_TRUE(second.none()) << second;
    EXPECT_GT(given, 20);
  }
}

// What the global functions refuse they say on standard error, which takes system calls; nothing else.
TEST(RealTime, RefusedFramesTouchNeitherHeapNorLocks) {
  std::vector<float> frame(160);
  float* const data = frame.data();
  float score = 0.0F;
  uint32_t latency = 0;
  const auto expectRefusal = [](int status, const std::function<int()>& call) {
    int got = 0;
    const Misdeeds misdeeds = misdeedsOf([&] { got = call(); });
    EXPECT_EQ(got, status);
    EXPECT_EQ(misdeeds.heapCalls + misdeeds.locks, 0U) << status << ": " << misdeeds;
  };
  Capture quiet;
  expectRefusal(-3, [&] { return Orv_NC_GetLatency(data, &latency); });
  Sdk sdk;
  ASSERT_EQ(sdk.load("cleaner", makeModel({})), 0);
  ASSERT_EQ(sdk.load("detector", makeVadModel()), 0);
  void* cleaner = Orv_NC_CreateSession(16000, 16000, 10, "cleaner");
  void* detector = Orv_VAD_CreateSession(8000, 10, "detector");
  expectRefusal(1, [&] { return clean(cleaner, data, 159, data, 160); });
  expectRefusal(2, [&] { return clean(detector, data, 160, data, 160); });
  expectRefusal(2, [&] { return Orv_VAD_ProcessFloat(data, data, 80, &score); });
  expectRefusal(1, [&] { return Orv_VAD_ProcessFloat(detector, data, 80, nullptr); });
  expectRefusal(1, [&] { return Orv_NC_SetAttenuationLimit(cleaner, -1.0F); });
  expectRefusal(2, [&] { return Orv_NC_GetLatency(detector, &latency); });
  void* sessions[] = {cleaner, cleaner, detector, nullptr};
  const uint32_t counts[] = {160, 160, 160, 160};
  float* const frames[] = {data, data, data, data};
  int statuses[4];
  expectRefusal(1, [&] {
    return Orv_NC_CleanBatchFloat(4, sessions, frames, counts, frames, counts, statuses);
  });
  expectRefusal(1, [&] {
    return Orv_NC_CleanBatchFloat(4, sessions, frames, counts, frames, nullptr, statuses);
  });
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
