// Voice-activity scores through the exports against the plain reference.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "tests/reference/session.h"
#include "tests/support/library.h"
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
  // With the reset on, no frame is taken for voice: it would come at once if it could.
  if (!row.keys.empty()) model.linearBias.back()[0] = -5.0F;
  std::string messages;
  orvel::Library library({}, [&](orvel::Severity, std::string_view text) { messages += text; });
  load(library, "voice", model, row.keys);
  Session reference(model, row.keys, row.rate, row.rate, row.ms);
  messages.clear();
  orvel::Detector detector(library, {row.rate, row.ms, "voice"});
  EXPECT_EQ(messages.find("ERROR FRAMEDURATIONS") == std::string::npos, row.ms == 10) << messages;

  std::vector<int16_t> input(static_cast<size_t>(row.silence * row.rate));
  for (const int16_t sample : speechLike(row.rate, row.seconds)) {
    input.push_back(static_cast<int16_t>(std::clamp(sample * row.gain, -32768.0, 32767.0)));
  }
  const std::vector<float> floats = toFloat(input);
  const size_t size = detector.frameSize();
  double difference = 0.0, least = 1e9, most = -1e9;
  for (size_t at = 0; at + size <= input.size(); at += size) {
    const Signal frame(input.begin() + static_cast<long>(at),
                       input.begin() + static_cast<long>(at + size));
    const double expected = reference.vad(frame);
    const float score = row.int16
                            ? detector.process(std::span(std::as_const(input)).subspan(at, size))
                            : detector.process(std::span(floats).subspan(at, size));
    difference = std::fmax(difference, std::fabs(expected - static_cast<double>(score)));
    least = std::fmin(least, expected);
    most = std::fmax(most, expected);
  }
  EXPECT_LT(difference, kTolerance);
  EXPECT_GT(most - least, 0.1) << "scores that hardly move show nothing";
  if (row.calibrated) {
    EXPECT_GE(least, 0.00001);
    EXPECT_LE(most, 0.99999);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Rows, VadStream,
    testing::Values(
        Row{.name = "Plain8k"}, Row{.name = "Int16", .int16 = true},
        Row{.name = "From48k", .rate = 48000}, Row{.name = "Buffers20ms", .ms = 20},
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

// No input weight: the raw output is the last bias, whatever the audio.
TestModel constantVadModel(float raw) {
  TestModel model = makeVadModel();
  std::fill(model.linear.back().data.begin(), model.linear.back().data.end(), 0.0F);
  model.linearBias.back()[0] = raw;
  return model;
}

float scoreOf(const std::string& weights) {
  orvel::Library library;
  load(library, "voice", weights);
  return orvel::Detector(library, {.rate = 8000}).process(std::vector<float>(80, 0.1F));
}

TEST(Vad, ScoresAreCalibratedPiecewise) {
  const std::pair<float, double> points[] = {{-3.0F, 0.00001}, {-2.5F, 0.00001}, {-1.05F, 0.25},
                                             {0.4F, 0.5},      {1.7F, 0.75},     {3.0F, 0.99999},
                                             {30.0F, 0.99999}};
  for (const auto& [raw, score] : points)
    EXPECT_NEAR(scoreOf(constantVadModel(raw).weights().bytes()), score, 1e-6) << raw;
}

TEST(Vad, ShortCalibrationGivesTheRawOutput) {
  const WeightBuilder whole = constantVadModel(7.5F).weights();
  WeightBuilder noBest = whole, shortRange = whole, mistyped = whole;
  for (const WeightBuilder& weights :
       {noBest.drop("Test_BestF1"), shortRange.floats("Test_MINMAX", {-1.0F}),
        mistyped.real("Test_BestF1", 0.4F)}) {
    EXPECT_FLOAT_EQ(scoreOf(weights.bytes()), 7.5F);
  }
}

}  // namespace
}  // namespace orvel_test
