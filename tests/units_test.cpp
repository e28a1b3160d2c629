// The library's building blocks against closed forms and the plain reference.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "containers/any_map.h"
#include "containers/matrix.h"
#include "noise_canceller/generated_objects.h"
#include "tests/reference/energy.h"
#include "tests/reference/fourier.h"
#include "tests/reference/windows.h"
#include "tests/support/temp_dir.h"
#include "tests/support/weight_builder.h"
#include "utils/en_threshold.h"
#include "utils/fft.h"
#include "utils/mean_energy.h"
#include "utils/native_path.h"
#include "utils/orvel_exception.h"
#include "utils/sliding_buffer.h"
#include "utils/window_generators.h"
#include "weights/binary_file.h"
#include "weights/weight.h"

namespace orvel_test {
namespace {

using ORVEL::CONTAINERS::AnyMap;
using ORVEL::CONTAINERS::Matrix;
using ORVEL::UTILS::ORVEL_Exception;

TEST(Exception, ComposesPlaceAndMessage) {
  const ORVEL_Exception thrown("what it says", "folder/unit", -7, "function");
  const std::string text =
      "ORVEL_Exeption in file folder/unit Line -7 Function function\n messege what it says";
  EXPECT_EQ(thrown.what(), text);
  const ORVEL_Exception copy(thrown);  // NOLINT(performance-unnecessary-copy-initialization)
  EXPECT_EQ(copy.what(), text);
  EXPECT_STREQ(ORVEL_Exception("", "f", 0, "g").what(),
               "ORVEL_Exeption in file f Line 0 Function g\n messege ");
}

TEST(AnyMapTest, StoresSharesAndRefuses) {
  AnyMap map;
  const auto stored = map.set<std::string>("A", "x", false);
  ASSERT_NE(stored, nullptr);
  EXPECT_EQ(map.set<std::string>("A", "y", false), nullptr);
  EXPECT_EQ(map.getReference<std::string>("A"), "x");
  EXPECT_EQ(map.set<std::string>("A", "y", true), nullptr);
  EXPECT_EQ(map.getReference<std::string>("A"), "y");
  EXPECT_EQ(map.set<int>("A", 3, true), nullptr) << "another type replaces just as well";
  EXPECT_EQ(map.get<std::string>("A"), nullptr);
  EXPECT_EQ(map.get<float>("A"), nullptr);
  EXPECT_EQ(map.getReference<int>("A"), 3);
  EXPECT_EQ(map.size(), 1U);
  const auto kept = map.get<int>("A");
  map.clear();
  EXPECT_EQ(*kept, 3);
  EXPECT_EQ(*stored, "x");
  for (const std::string key : {"A", ""}) {
    try {
      map.getReference<int>(key);
      FAIL() << "no exception";
    } catch (const ORVEL_Exception& missing) {
      EXPECT_EQ(missing.what(),
                "ORVEL_Exeption in file weights/weight Line 176 Function getReference\n messege "
                "ERROR DATA With Key: " +
                    key + "doesn't exists");
    }
  }
}

TEST(BinaryFileTest, WritesWhatItReads) {
  const TempDir dir;
  const std::string path = dir.file("values");
  {
    ORVEL::WEIGHTS::BinaryFile file(path, 1);
    file.write(uint32_t{0xFFFFFFFE}).write(-0.5F).write(std::string("na\0me", 5));
    file.write(Floats{1.0F, 2.0F}).write(Matrix{{1, 2, 3, 4, 5, 6}, 2, 3});
    ASSERT_TRUE(file.good());
  }
  ORVEL::WEIGHTS::BinaryFile file(path, 0);
  uint32_t number = 0;
  float real = 0.0F;
  std::string text;
  Floats floats;
  Matrix matrix;
  file.read(number).read(real).read(text).read(floats).read(matrix);
  ASSERT_TRUE(file.good());
  EXPECT_EQ(number, 0xFFFFFFFEU);
  EXPECT_EQ(real, -0.5F);
  EXPECT_EQ(text, std::string("na\0me", 5));
  EXPECT_EQ(floats, (Floats{1.0F, 2.0F}));
  EXPECT_EQ(matrix.data, (Floats{1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(matrix.dim0 * 10 + matrix.dim1, 23U);
  EXPECT_FALSE(file.read(number).good());
  EXPECT_FALSE(ORVEL::WEIGHTS::BinaryFile(dir.file("missing"), 0).good());
}

TEST(NativePath, TurnsBackslashesOnly) {
  EXPECT_EQ(ORVEL::UTILS::nativePath("C:\\a b\\c/d\\"), "C:/a b/c/d/");
  EXPECT_EQ(ORVEL::UTILS::nativePath(""), "");
}

TEST(Windows, MatchTheirClosedForms) {
  using Generator = void (*)(std::vector<float>&);
  struct Row {
    const char* name;
    Generator library;
    Signal (*reference)(int);
  };
  const Row rows[] = {{"triangle", ORVEL::UTILS::generateTriangleWindow, triangle},
                      {"hamming", ORVEL::UTILS::generateHammingWindow, hamming},
                      {"vorbis", ORVEL::UTILS::generateVorbisWindow, vorbis}};
  for (const Row& row : rows) {
    for (const int n : {2, 3, 4, 5, 240, 512, 513}) {
      std::vector<float> window(n);
      row.library(window);
      const Signal expected = row.reference(n);
      for (int i = 0; i < n; ++i) {
        EXPECT_NEAR(window[i], expected[i], 6e-8) << row.name << ' ' << n << ' ' << i;
      }
    }
  }
  std::vector<float> five(5);
  ORVEL::UTILS::generateTriangleWindow(five);
  EXPECT_EQ(five, (Floats{0.0F, 0.4F, 1.0F, 0.6F, 0.0F}));
  std::vector<float> four(4);
  ORVEL::UTILS::generateVorbisWindow(four);
  EXPECT_EQ(four[0], 0.0F);
  EXPECT_EQ(four[2], 1.0F);
}

TEST(GeneratedObjects, AreMadeOncePerModelAndIgnoreForeignEntries) {
  using namespace ORVEL::NOISE_CANCELLER;
  AnyMap keys;
  const auto first = obtainHammingWindow(keys, 240);
  EXPECT_EQ(obtainHammingWindow(keys, 240).get(), first.get());
  EXPECT_NE(static_cast<const void*>(obtainVorbisWindow(keys, 240).get()), first.get());
  EXPECT_EQ(obtainFFT(keys, 240).get(), obtainFFT(keys, 240).get());
  AnyMap disturbed;  // a tuning key of that name came first
  disturbed.set<std::string>("GEN_HammingWindow", "text", true);
  disturbed.set<std::string>("GEN_FFTCalculator", "text", true);
  const auto window = obtainHammingWindow(disturbed, 240);
  ASSERT_NE(window, nullptr);
  EXPECT_EQ(window->size(), 240U);
  EXPECT_NE(obtainFFT(disturbed, 240), nullptr);
}

TEST(Fft, AgreesWithTheDirectTransformBothWays) {
  std::mt19937 engine(3);
  for (const unsigned n : {8U, 240U, 480U, 512U, 1024U, 514U}) {
    const auto fft = ORVEL::UTILS::createFFT(n);
    std::vector<float> frame(n), back(3);
    for (float& sample : frame)
      sample = static_cast<float>(static_cast<int>(engine() % 2001) - 1000);
    std::vector<std::complex<float>> bins(n * 2);
    ASSERT_TRUE(fft->forward(frame, bins));
    ASSERT_EQ(bins.size(), n / 2 + 1);
    const Spectrum expected = forwardReal(Signal(frame.begin(), frame.end()));
    for (size_t k = 0; k < bins.size(); ++k) {
      EXPECT_LT(std::abs(std::complex<double>(bins[k]) - expected[k]), 0.02) << n << ' ' << k;
    }
    std::vector<std::complex<float>> plain(n / 2 + 1);
    ASSERT_TRUE(fft->forward(frame.data(), n, plain.data(), plain.size()));
    EXPECT_EQ(plain, bins);
    ASSERT_TRUE(fft->backward(bins, back));
    ASSERT_EQ(back.size(), n);
    for (unsigned i = 0; i < n; ++i)
      EXPECT_NEAR(back[i], frame[i], 1e-3) << n << ' ' << i;
  }
}

// --- energy followers -------------------------------------------------------------------------

// Frames of one value whose level wanders through loud and quiet stretches.
std::vector<std::vector<float>> wanderingFrames() {
  std::mt19937 engine(9);
  std::vector<std::vector<float>> frames;
  for (int i = 0; i < 300; ++i) {
    const bool quiet = i / 40 % 3 == 1;
    const auto level = static_cast<float>(quiet ? 1 + engine() % 8 : 60 + engine() % 40);
    frames.emplace_back(8, i % 2 == 0 ? level : -level);
  }
  return frames;
}

TEST(MeanEnergyTest, FollowsTheLoudFramesOfItsMemory) {
  for (const uint32_t memory : {1U, 7U, 1000U}) {
    for (const float reference : {0.0F, 900.0F, 1e9F}) {
      ORVEL::UTILS::MeanEnergy tracker(10, memory, reference, 4e6F);
      LoudMean expected(10, memory, reference, 4e6);
      for (const auto& frame : wanderingFrames()) {
        const double mean = expected.update(Signal(frame.begin(), frame.end()));
        EXPECT_NEAR(tracker.update(frame.data(), frame.size()), mean, mean * 1e-6);
      }
    }
  }
}

TEST(MeanEnergyTest, KnownAnswers) {
  const std::vector<float> silence(4, 0.0F), ten(4, 10.0F), twenty(4, -20.0F);
  ORVEL::UTILS::MeanEnergy quiet(10, 5, 1.0F, 4e6F);
  EXPECT_EQ(quiet.update(silence.data(), 4), 4e6F) << "nothing loud yet: the initial energy";
  ORVEL::UTILS::MeanEnergy slow(10, 5, 25.0F,
                                100.0F);  // 100 / 10 frames is below 25, twice as well
  EXPECT_EQ(slow.update(ten.data(), 4), 100.0F);
  EXPECT_EQ(slow.update(ten.data(), 4), 100.0F);
  EXPECT_EQ(slow.update(twenty.data(), 4), 250.0F) << "(100 + 100 + 400) / 10 is loud";
  ORVEL::UTILS::MeanEnergy always(10, 2, 0.0F, 700.0F);
  EXPECT_EQ(always.update(ten.data(), 4), 400.0F);
  EXPECT_EQ(always.update(ten.data(), 4), 100.0F) << "the initial energy is pushed out";
}

TEST(EnThresholdTest, FollowsItsDefinition) {
  for (const uint32_t memory : {1U, 7U, 1000U}) {
    for (const double reference : {1.0, 300.0, 1e9}) {
      ORVEL::UTILS::EnThreshold gate(10, memory, reference);
      Gate expected(memory, reference);
      double least = 1.0;
      for (const auto& frame : wanderingFrames()) {
        const double factor = expected.measure(Signal(frame.begin(), frame.end()));
        gate.measure(frame.data(), frame.size());
        EXPECT_NEAR(gate.factor(), factor, 1e-9);
        least = std::fmin(least, factor);
      }
      if (reference == 300.0) {
        EXPECT_LT(least, 0.5) << "the gate never closed";
      }
    }
  }
}

TEST(EnThresholdTest, AppliesItsFactor) {
  const std::vector<float> loud(4, 100.0F), silence(4, 0.0F);
  ORVEL::UTILS::EnThreshold gate(10, 100, 1.0);
  Floats gains = {0.5F, 1.0F};
  gate.apply(gains.data(), 2);
  EXPECT_EQ(gains, (Floats{0.5F, 1.0F})) << "open before the first frame";
  gate.measure(loud.data(), 4);  // 1000 of 10000, between a fifteenth (667) and above: open
  EXPECT_EQ(gate.factor(), 1.0);
  for (int i = 0; i < 10; ++i)
    gate.measure(silence.data(), 4);
  EXPECT_EQ(gate.factor(), 0.0);
  gate.apply(gains.data(), 2);
  EXPECT_EQ(gains, (Floats{0.0F, 0.0F}));
}

TEST(SlidingBufferTest, NeverLosesLiveSamples) {
  ORVEL::UTILS::SlidingBuffer buffer(10);
  float next = 0.0F, oldest = 0.0F;
  for (const int count : {4, 3, 3, 5, 1, 7, 2, 6}) {
    while (static_cast<int>(buffer.size()) + count > 10) {
      buffer.advance(1);
      oldest += 1.0F;
    }
    for (int i = 0; i < count; ++i) {
      buffer.append(&next, 1);
      next += 1.0F;
    }
    for (size_t i = 0; i < buffer.size(); ++i) {
      ASSERT_EQ(buffer.data()[i], oldest + static_cast<float>(i));
    }
    ASSERT_EQ(oldest + static_cast<float>(buffer.size()), next);
  }
  buffer.advance(buffer.size());
  buffer.appendZeros(10);
  EXPECT_EQ(Floats(buffer.data(), buffer.data() + 10), Floats(10, 0.0F));
}

TEST(WeightInformation, RateAndDurationAreChecked) {
  struct Row {
    int rate, frame;
    int duration;  // 0: refused
  };
  const Row rows[] = {
      {16000, 320, 20}, {16000, 512, 32},  {16000, 330, 20},      {8000, 256, 32},
      {8000, 200, 0},   {32000, 1280, 40}, {16000, 240, 15},      {16000, 160, 10},
      {44100, 441, 0},  {48000, 1440, 0},  {0, 512, 0},           {16000, 0, 0},
      {16000, -512, 0}, {-16000, -512, 0}, {8000, 2147483647, 0}, {16000, 4294972, 0}};
  for (const Row& row : rows) {
    ORVEL::WEIGHTS::Weight weight;
    weight.values().set<int>("SampleRate", row.rate, false);
    weight.values().set<int>("FrameLength", row.frame, false);
    if (row.duration == 0) {
      EXPECT_THROW(ORVEL::WEIGHTS::getWeightInfo(weight), ORVEL_Exception)
          << row.rate << ' ' << row.frame;
    } else {
      EXPECT_EQ(ORVEL::WEIGHTS::getWeightInfo(weight).frameDurationMs, row.duration);
      EXPECT_EQ(ORVEL::WEIGHTS::getWeightInfo(weight).sampleRate, row.rate);
    }
  }
}

}  // namespace
}  // namespace orvel_test
