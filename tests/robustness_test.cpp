// Hostile audio and weights through the exports; threads and time that a session takes.
#include <time.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>

#include "tests/support/sdk.h"
#include "tests/support/signals.h"

namespace orvel_test {
namespace {

Shape shapeOf(const char* version) {
  Shape shape;
  shape.version = version;
  if (std::string(version) == "0.0.4") shape.compress = 1;
  if (std::string(version) == "0.0.5") shape.compress = 2;
  return shape;
}

const char* const kVersions[] = {"0.0.1", "0.0.2", "0.0.3", "0.0.4", "0.0.5"};

TEST(HostileAudio, NotANumberCountsAsZero) {
  Sdk sdk;
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float infinity = std::numeric_limits<float>::infinity();
  std::vector<float> clean = toFloat(speechLike(48000, 0.3));
  std::vector<float> dirty = clean;
  for (size_t i = 2000; i < dirty.size(); i += 977) {
    clean[i] = 0.0F;
    dirty[i] = i % 3 == 0 ? nan : i % 3 == 1 ? infinity : -infinity;
  }
  ASSERT_EQ(sdk.load("voice", makeVadModel()), 0);
  void* a = Orv_VAD_CreateSession(48000, 10, "voice");
  void* b = Orv_VAD_CreateSession(48000, 10, "voice");
  for (size_t at = 0; at + 480 <= clean.size(); at += 480) {
    float expected = 0.0F, got = -1.0F;
    ASSERT_EQ(Orv_VAD_ProcessFloat(a, &clean[at], 480, &expected), 0);
    ASSERT_EQ(Orv_VAD_ProcessFloat(b, &dirty[at], 480, &got), 0);
    ASSERT_EQ(got, expected);
  }
  for (const char* version : kVersions) {
    ASSERT_EQ(sdk.load(version, makeModel(shapeOf(version))), 0);
    void* first = Orv_NC_CreateSession(48000, 48000, 10, version);
    void* second = Orv_NC_CreateSession(48000, 48000, 10, version);
    EXPECT_EQ(cleanStream(first, clean, 480, 480), cleanStream(second, dirty, 480, 480)) << version;
  }
}

TEST(HostileAudio, ExtremesStayWithinFullScaleAndPass) {
  Sdk sdk;
  for (const char* version : kVersions) {
    ASSERT_EQ(sdk.load(version, makeModel(shapeOf(version))), 0);
    void* session = Orv_NC_CreateSession(44100, 48000, 20, version);
    void* fresh = Orv_NC_CreateSession(44100, 48000, 20, version);
    const float largest = std::numeric_limits<float>::max();
    std::vector<float> input;
    for (const float value : {largest, -largest, 1e30F, 1.0F, -1.0F, 1e-40F}) {
      for (int i = 0; i < 4 * 882; ++i)
        input.push_back(i / 50 % 2 == 0 ? value : -value);
    }
    const std::vector<float> output = cleanStream(session, input, 882, 960);
    for (const float sample : output) {
      ASSERT_GE(sample, -1.0F) << version;
      ASSERT_LE(sample, 32767.0F / 32768.0F) << version;
    }
    // Feed-forward generations forget: after the averages have run out the stream is as usual.
    if (version[4] > '2') continue;
    std::vector<float> tail(882 * 40, 0.0F);
    cleanStream(session, tail, 882, 960);
    cleanStream(fresh, tail, 882, 960);
    const std::vector<float> speech = toFloat(speechLike(44100, 0.3));
    const std::vector<float> after = cleanStream(session, speech, 882, 960);
    const std::vector<float> usual = cleanStream(fresh, speech, 882, 960);
    double difference = 0.0;
    for (size_t i = 0; i < usual.size(); ++i) {
      difference = std::fmax(
          difference, std::fabs(static_cast<double>(after[i]) - static_cast<double>(usual[i])));
    }
    EXPECT_LT(difference, 1e-3) << version;
  }
}

// Numbers in a weight set that turn gains and scores into anything: the frame must still come back.
TEST(HostileWeights, AnyValuesGiveAFrameInFullScale) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float infinity = std::numeric_limits<float>::infinity();
  int number = 0;
  Sdk sdk;
  for (const char* version : kVersions) {
    for (const float value : {nan, infinity, -infinity, 0.0F, 3e38F}) {
      for (const bool inMu : {true, false}) {
        TestModel model = makeModel(shapeOf(version));
        if (inMu) {
          model.mu[3] = value;
          model.sd[5] = 0.0F;
        } else {
          for (size_t layer = 0; layer < model.nonLinear.size(); ++layer) {
            model.nonLinear[layer].data[7] = model.linear[layer].data[3] = value;
          }
        }
        const std::string name = "model" + std::to_string(++number);
        ASSERT_EQ(sdk.load(name, model, {{"ORVEL_RESCALE_REF_AMPL_v0_0_3", "nan"}}), 0);
        void* session = Orv_NC_CreateSession(48000, 44100, 10, name.c_str());
        ASSERT_NE(session, nullptr);
        const std::vector<int16_t> input = speechLike(48000, 0.1);
        EXPECT_EQ(cleanStream(session, input, 480, 441).size(), 4410U);
        for (const float sample : cleanStream(session, toFloat(input), 480, 441)) {
          ASSERT_TRUE(sample >= -1.0F && sample <= 1.0F) << name << ' ' << sample;
        }
      }
    }
  }
}

TEST(Threads, TheLibraryStartsNone) {
  const auto tasks = [] {
    int count = 0;
    for ([[maybe_unused]] const auto& task :
         std::filesystem::directory_iterator("/proc/self/task")) {
      ++count;
    }
    return count;
  };
  const int before = tasks();
  Sdk sdk;
  ASSERT_EQ(sdk.load("model", makeModel(shapeOf("0.0.5"))), 0);
  cleanStream(Orv_NC_CreateSession(48000, 48000, 10, "model"), speechLike(48000, 0.2), 480, 480);
  EXPECT_EQ(tasks(), before);
}

}  // namespace
}  // namespace orvel_test
