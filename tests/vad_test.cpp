// Voice-activity scores through the exports against the plain reference.
#include <algorithm>
#include <cmath>

#include "tests/reference/session.h"
#include "tests/support/sdk.h"
#include "tests/support/signals.h"

namespace orvel_test {
namespace {

// Scores are of order 1, and the recurrent state carries single-precision rounding from frame to
// frame: about ten times the largest difference seen (6e-6 of an uncalibrated score).
constexpr double kTolerance = 5e-5;

struct Row {
  const char* name;
  int modelRate = 8000;
  int rate = 8000;
  int ms = 10;
  bool int16 = false;
  bool calibrated = true;
  int gateWidth = 10;
  size_t statistics = 61;  // features that are normalised
  double silence = 0.0;    // seconds in front
  double seconds = 1.5;
  double gain = 1.0;
  Keys keys = {};
};
void PrintTo(const Row& row, std::ostream* out) { *out << row.name; }

class VadStream : public testing::TestWithParam<Row> {};

TEST_P(VadStream, MatchesTheReference) {
  const Row& row = GetParam();
  TestModel model = makeVadModel(row.modelRate, row.calibrated, row.gateWidth);
  model.mu.resize(row.statistics);
  model.sd.resize(row.statistics);
  Sdk sdk;
  ASSERT_EQ(sdk.load("voice", model, row.keys), 0);
  Session reference(model, row.keys, row.rate, row.rate, row.ms);
  Capture capture;
  void* session = Orv_VAD_CreateSession(row.rate, row.ms, "voice");
  ASSERT_NE(session, nullptr) << capture.err();
  EXPECT_EQ(capture.err(), row.ms == 10 ? "" : "ERROR FRAMEDURATIONS\n");

  std::vector<int16_t> input(static_cast<size_t>(row.silence * row.rate));
  for (const int16_t sample : speechLike(row.rate, row.seconds)) {
    input.push_back(static_cast<int16_t>(std::clamp(sample * row.gain, -32768.0, 32767.0)));
  }
  const std::vector<float> floats = toFloat(input);
  const size_t size = samplesPerFrame(row.rate, row.ms);
  const auto count = static_cast<uint32_t>(size);
  double difference = 0.0, least = 1e9, most = -1e9;
  for (size_t at = 0; at + size <= input.size(); at += size) {
    const Signal frame(input.begin() + static_cast<long>(at),
                       input.begin() + static_cast<long>(at + size));
    const double expected = reference.vad(frame);
    float score = -77.0F;
    const int status = row.int16 ? Orv_VAD_ProcessInt16(session, &input[at], count, &score)
                                 : Orv_VAD_ProcessFloat(session, &floats[at], count, &score);
    ASSERT_EQ(status, 0);
    difference = std::fmax(difference, std::fabs(expected - static_cast<double>(score)));
    least = std::fmin(least, expected);
    most = std::fmax(most, expected);
  }
  RecordProperty("difference", std::to_string(difference));
  RecordProperty("spread", std::to_string(most - least));
  EXPECT_LT(difference, kTolerance);
  EXPECT_GT(most - least, 0.1) << "scores that hardly move show nothing";
  if (row.calibrated) {
    EXPECT_GE(least, 0.00001);
    EXPECT_LE(most, 0.99999);
  }
  EXPECT_EQ(Orv_VAD_CloseSession(session), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, VadStream,
    testing::Values(
        Row{.name = "Plain8k"}, Row{.name = "Int16", .int16 = true},
        Row{.name = "Model16k", .modelRate = 16000, .rate = 16000, .int16 = true},
        Row{.name = "From48k", .rate = 48000}, Row{.name = "From44k", .rate = 44100, .int16 = true},
        Row{.name = "Buffers20ms", .ms = 20}, Row{.name = "Buffers30ms", .rate = 16000, .ms = 30},
        Row{.name = "LongerThanTheFrame", .ms = 40},
        Row{.name = "Longer16k", .modelRate = 16000, .rate = 16000, .ms = 40, .int16 = true},
        Row{.name = "Uncalibrated", .calibrated = false}, Row{.name = "OneGate", .gateWidth = 1},
        Row{.name = "FewStatistics", .calibrated = false, .statistics = 40},
        Row{.name = "Quiet", .int16 = true, .gain = 0.01},
        Row{.name = "Loud", .int16 = true, .gain = 2.5},
        Row{.name = "AfterSilence", .calibrated = false, .silence = 20.0},
        // The ring subtracts, so the reset never comes: with it the scores after 3 s would differ.
        Row{.name = "ResetNeverComes",
            .calibrated = false,
            .seconds = 8.0,
            .gain = 0.02,
            .keys = {{"ORVEL_VAD_ENABLE_STATE_RESET_v0_0_1", "TRUE"}}}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(Vad, ScoresAreCalibratedPiecewise) {
  // No input weight: the raw output is the last bias, whatever the audio.
  struct Point {
    float raw;
    double score;
  };
  const Point points[] = {{-3.0F, 0.00001}, {-2.5F, 0.00001}, {-1.05F, 0.25},  {0.4F, 0.5},
                          {1.7F, 0.75},     {3.0F, 0.99999},  {30.0F, 0.99999}};
  int number = 0;
  Sdk sdk;
  for (const Point& point : points) {
    TestModel model = makeVadModel();
    std::fill(model.linear.back().data.begin(), model.linear.back().data.end(), 0.0F);
    model.linearBias.back()[0] = point.raw;
    const std::string name = "bias" + std::to_string(++number);
    ASSERT_EQ(sdk.load(name, model), 0);
    void* session = Orv_VAD_CreateSession(8000, 10, name.c_str());
    const std::vector<float> frame(80, 0.1F);
    float score = 0.0F;
    ASSERT_EQ(Orv_VAD_ProcessFloat(session, frame.data(), 80, &score), 0);
    EXPECT_NEAR(score, point.score, 1e-6) << point.raw;
  }
}

TEST(Vad, ShortCalibrationGivesTheRawOutput) {
  Sdk sdk;
  TestModel model = makeVadModel();
  std::fill(model.linear.back().data.begin(), model.linear.back().data.end(), 0.0F);
  model.linearBias.back()[0] = 7.5F;
  WeightBuilder noBest = model.weights(), shortRange = model.weights(), mistyped = model.weights();
  noBest.drop("Test_BestF1");
  shortRange.floats("Test_MINMAX", {-1.0F});
  mistyped.real("Test_BestF1", 0.4F);
  ASSERT_EQ(sdk.load("noBest", noBest.bytes()), 0);
  ASSERT_EQ(sdk.load("shortRange", shortRange.bytes()), 0);
  ASSERT_EQ(sdk.load("mistyped", mistyped.bytes()), 0);
  for (const char* name : {"noBest", "shortRange", "mistyped"}) {
    void* session = Orv_VAD_CreateSession(8000, 10, name);
    ASSERT_NE(session, nullptr) << name;
    const std::vector<float> frame(80, 0.1F);
    float score = 0.0F;
    ASSERT_EQ(Orv_VAD_ProcessFloat(session, frame.data(), 80, &score), 0);
    EXPECT_FLOAT_EQ(score, 7.5F) << name;
  }
}

TEST(Vad, CountsAndPointersMustFit) {
  Sdk sdk;
  ASSERT_EQ(sdk.load("voice", makeVadModel()), 0);
  void* session = Orv_VAD_CreateSession(44100, 10, "voice");
  Capture capture;
  const std::string sizes = "\n input size must be 441\n output size must be 0\n";
  const std::string textOfInt16 =
      "ERROR input dataSize or output dataSize or pointers of inputData output Data is wrong" +
      sizes;
  const std::string textOfFloat = "ERROR input dataSize or output dataSize is wrong " + sizes;
  const std::vector<int16_t> a(500);
  const std::vector<float> b(500);
  float score = 77.0F;
  for (const uint32_t count : {0U, 440U, 442U, UINT32_MAX}) {
    EXPECT_EQ(Orv_VAD_ProcessInt16(session, a.data(), count, &score), 1);
    EXPECT_EQ(Orv_VAD_ProcessFloat(session, b.data(), count, &score), 1);
    EXPECT_EQ(capture.err(), textOfInt16 + textOfFloat) << count;
  }
  EXPECT_EQ(Orv_VAD_ProcessInt16(session, nullptr, 441, &score), 1);
  EXPECT_EQ(Orv_VAD_ProcessInt16(session, a.data(), 441, nullptr), 1);
  EXPECT_EQ(Orv_VAD_ProcessFloat(session, nullptr, 441, &score), 1);
  EXPECT_EQ(Orv_VAD_ProcessFloat(session, b.data(), 441, nullptr), 1);
  EXPECT_EQ(capture.err(), textOfInt16 + textOfInt16 + textOfFloat + textOfFloat);
  EXPECT_EQ(score, 77.0F);
  EXPECT_EQ(Orv_VAD_ProcessInt16(session, a.data(), 441, &score), 0);
}

}  // namespace
}  // namespace orvel_test
