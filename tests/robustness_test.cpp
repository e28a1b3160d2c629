// Hostile audio and weights through whole sessions; threads that a session starts.
#include <gtest/gtest.h>

#include <filesystem>
#include <limits>

#include "tests/support/library.h"
#include "tests/support/signals.h"
#include "tests/support/versions.h"

namespace orvel_test {
namespace {

TEST(HostileAudio, NotANumberCountsAsZero) {
  orvel::Library library;
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float infinity = std::numeric_limits<float>::infinity();
  std::vector<float> clean = toFloat(speechLike(48000, 0.3));
  std::vector<float> dirty = clean;
  for (size_t i = 2000; i < dirty.size(); i += 977) {
    clean[i] = 0.0F;
    dirty[i] = i % 3 == 0 ? nan : i % 3 == 1 ? infinity : -infinity;
  }
  load(library, "voice", makeVadModel());
  orvel::Detector a(library, {.rate = 48000, .model = "voice"});
  orvel::Detector b(library, {.rate = 48000, .model = "voice"});
  for (size_t at = 0; at + 480 <= clean.size(); at += 480) {
    ASSERT_EQ(b.process(std::span<const float>(dirty).subspan(at, 480)),
              a.process(std::span<const float>(clean).subspan(at, 480)));
  }
  for (const CleanerTraits* traits : noiseCleaners()) {
    const std::string version = traits->version;
    load(library, version, makeModel(shapeOf(*traits)));
    orvel::Cleaner first(library, {.inputRate = 48000, .model = version});
    orvel::Cleaner second(library, {.inputRate = 48000, .model = version});
    EXPECT_EQ(cleanStream(first, clean), cleanStream(second, dirty)) << version;
  }
}

TEST(HostileAudio, ExtremesStayWithinFullScale) {
  orvel::Library library;
  for (const CleanerTraits* traits : noiseCleaners()) {
    const std::string version = traits->version;
    load(library, version, makeModel(shapeOf(*traits)));
    orvel::Cleaner cleaner(library, {44100, 48000, 20, version});
    const float largest = std::numeric_limits<float>::max();
    std::vector<float> input;
    for (const float value : {largest, -largest, 1e30F, 1.0F, -1.0F, 1e-40F}) {
      for (int i = 0; i < 4 * 882; ++i)
        input.push_back(i / 50 % 2 == 0 ? value : -value);
    }
    const std::vector<float> output = cleanStream(cleaner, input);
    for (const float sample : output) {
      ASSERT_GE(sample, -1.0F) << version;
      ASSERT_LE(sample, 32767.0F / 32768.0F) << version;
    }
  }
}

// Numbers in a weight set that turn gains and scores into anything: the frame must still come back.
TEST(HostileWeights, AnyValuesGiveAFrameInFullScale) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float infinity = std::numeric_limits<float>::infinity();
  int number = 0;
  orvel::Library library;
  for (const CleanerTraits* traits : noiseCleaners()) {
    const std::string version = traits->version;
    for (const float value : {nan, infinity, -infinity, 0.0F, 3e38F}) {
      for (const bool inMu : {true, false}) {
        TestModel model = makeModel(shapeOf(*traits));
        if (inMu) {
          model.mu[3] = value;
          model.sd[5] = 0.0F;
        } else {
          for (size_t layer = 0; layer < model.nonLinear.size(); ++layer) {
            model.nonLinear[layer].data[7] = model.linear[layer].data[3] = value;
          }
        }
        const std::string name = "model" + std::to_string(++number);
        load(library, name, model, {{"ORVEL_RESCALE_REF_AMPL_v0_0_3", "nan"}});
        orvel::Cleaner cleaner(library, {48000, 44100, 10, name});
        const std::vector<int16_t> input = speechLike(48000, 0.1);
        EXPECT_EQ(cleanStream(cleaner, input).size(), 4410U);
        for (const float sample : cleanStream(cleaner, toFloat(input))) {
          ASSERT_TRUE(sample >= -1.0F && sample <= 1.0F) << name << ' ' << sample;
        }
      }
    }
  }
}

TEST(Threads, TheLibraryStartsNone) {
  const auto tasks = [] {
    const std::filesystem::directory_iterator all("/proc/self/task");
    return std::distance(begin(all), end(all));
  };
  const auto before = tasks();
  orvel::Library library;
  load(library, "model", makeModel(shapeOf(*noiseCleaners().back())));
  orvel::Cleaner cleaner(library, {.inputRate = 48000});
  cleanStream(cleaner, speechLike(48000, 0.2));
  EXPECT_EQ(tasks(), before);
}

}  // namespace
}  // namespace orvel_test
