// Whole streams through the exports against the plain reference: every cleaner generation with its
// tuning keys, rates, sample formats and frame durations.
#include <algorithm>
#include <cmath>
#include <sstream>

#include "tests/reference/session.h"
#include "tests/support/sdk.h"
#include "tests/support/signals.h"
#include "tests/support/versions.h"

namespace orvel_test {
namespace {

// Single-precision transforms leave about 1e-7 of a frame's level in every bin, and the logarithm of
// a weak bin carries that into the gains. The bound is five times the largest difference seen (0.1)
// and a sixtieth of the least that a tuning key must change for its row to count.
constexpr double kTolerance = 0.5;  // of 32768
constexpr double kLeastEffect = 30.0;

enum Effect { Changes, Inert };  // what the keys do to the output of the same model without them

struct Row {
  std::string name;
  int generation = 1;
  // "STEM VALUE, STEM VALUE": "ORVEL_" before a stem and the generation's suffix behind it are
  // implied where no other is given.
  std::string tuning = {};
  Effect effect = Changes;
  int modelRate = 16000;
  int inRate = 16000;
  int outRate = 16000;
  int ms = 10;
  int frameMs = 32;
  bool int16 = false;
  void (*reshape)(Shape&) = [](Shape&) {};
  float limit = -1.0F;  // of the attenuation; negative: none is set
  double gain = 1.0;    // of the input
  double seconds = 0.8;
  bool pause = false;  // a stretch of digital silence in the middle
  bool faint = false;  // the silence is a denormal number instead
};
void PrintTo(const Row& row, std::ostream* out) { *out << row.name; }

const CleanerTraits& traitsOf(const Row& row) { return *noiseCleaners().at(row.generation - 1); }

Shape shapeOf(const Row& row) {
  Shape shape;
  shape.version = traitsOf(row).version;
  shape.rate = row.modelRate;
  shape.frameMs = row.frameMs;
  shape.seed = static_cast<unsigned>(row.modelRate / 1000 + row.frameMs);
  row.reshape(shape);
  return shape;
}

Keys keysOf(const Row& row) {
  Keys keys;
  std::stringstream entries(row.tuning);
  for (std::string entry; std::getline(entries >> std::ws, entry, ',');) {
    const size_t blank = entry.find(' ');
    std::string key = entry.substr(0, blank);
    if (key.find("_v0_0_") == std::string::npos) key += traitsOf(row).keySuffix;
    keys["ORVEL_" + key] = entry.substr(blank + 1);
  }
  return keys;
}

// Speech that fades to a third, so that a follower with another memory shows.
std::vector<int16_t> makeInput(const Row& row) {
  std::vector<int16_t> input = speechLike(row.inRate, row.seconds);
  for (size_t i = 0; i < input.size(); ++i) {
    const double place = static_cast<double>(i) / static_cast<double>(input.size());
    const bool silent = row.pause && place > 0.4 && place < 0.7;
    const double level = silent ? 0.0 : row.gain * (1.0 - 0.7 * place);
    input[i] = static_cast<int16_t>(std::clamp(input[i] * level, -32768.0, 32767.0));
  }
  return input;
}

template <class Sample>
Signal referenceStream(Session& session, const std::vector<Sample>& in) {
  Signal all;
  for (size_t at = 0; at + session.inputSize() <= in.size(); at += session.inputSize()) {
    Signal frame(in.begin() + static_cast<long>(at),
                 in.begin() + static_cast<long>(at + session.inputSize()));
    if (std::is_same_v<Sample, float>) {
      for (double& sample : frame)
        sample *= 32768.0;
    }
    const Signal out = session.clean(frame);
    all.insert(all.end(), out.begin(), out.end());
  }
  return all;
}

template <class Sample>
double largestDifference(const Signal& expected, const std::vector<Sample>& got, double scale) {
  double largest = 0.0;
  for (size_t i = 0; i < expected.size() && i < got.size(); ++i) {
    largest = std::fmax(largest, std::fabs(expected[i] - scale * static_cast<double>(got[i])));
  }
  return largest;
}

class Stream : public testing::TestWithParam<Row> {};

TEST_P(Stream, MatchesTheReference) {
  const Row& row = GetParam();
  const TestModel model = makeModel(shapeOf(row));
  const Keys keys = keysOf(row);
  Sdk sdk;
  ASSERT_EQ(sdk.load("model", model, keys), 0);
  Session reference(model, keys, row.inRate, row.outRate, row.ms);
  Capture capture;
  void* session = Orv_NC_CreateSession(row.inRate, row.outRate, row.ms, "model");
  ASSERT_NE(session, nullptr) << capture.err();
  EXPECT_EQ(capture.out(), Settings(model.generation(), keys).printed);
  if (row.limit >= 0) {
    ASSERT_EQ(Orv_NC_SetAttenuationLimit(session, row.limit), 0);
    reference.cleaner().setFloor(std::pow(10.0, -row.limit / 20.0));
  }

  const std::vector<int16_t> input = makeInput(row);
  const size_t inSize = samplesPerFrame(row.inRate, row.ms);
  const size_t outSize = samplesPerFrame(row.outRate, row.ms);
  Signal expected;
  if (!row.int16) {
    std::vector<float> samples = toFloat(input);
    if (row.faint) std::replace(samples.begin(), samples.end(), 0.0F, 1e-45F);
    expected = referenceStream(reference, samples);
    const std::vector<float> got = cleanStream(session, samples, inSize, outSize);
    ASSERT_EQ(got.size(), expected.size());
    const double difference = largestDifference(expected, got, 32768.0);
    EXPECT_LT(difference, kTolerance);
    ASSERT_EQ(Orv_NC_ResetSession(session), 0);
    EXPECT_EQ(cleanStream(session, samples, inSize, outSize), got) << "after a reset";
  } else {
    expected = referenceStream(reference, input);
    for (double& sample : expected)
      sample = std::trunc(sample);
    const std::vector<int16_t> got = cleanStream(session, input, inSize, outSize);
    ASSERT_EQ(got.size(), expected.size());
    // A value next to a whole number may be cut to either side, which must stay rare: rounding
    // instead of cutting would move half of them.
    EXPECT_LE(largestDifference(expected, got, 1.0), 1.0);
    size_t moved = 0;
    for (size_t i = 0; i < got.size(); ++i)
      moved += expected[i] != got[i] ? 1 : 0;
    EXPECT_LT(moved, got.size() / 50);
  }

  // The row must be able to fail: its keys reach the output, or are known not to.
  EXPECT_GT(*std::max_element(expected.begin(), expected.end()), 200.0);
  if (keys.empty() && row.limit < 0) return;
  Keys needed = keys;  // the compression rate belongs to the model's shape
  std::erase_if(needed, [](const auto& key) { return key.first != "ORVEL_COMPRESS_RATE_v0_0_5"; });
  Session keyless(model, needed, row.inRate, row.outRate, row.ms);
  const Signal other =
      !row.int16 ? referenceStream(keyless, toFloat(input)) : referenceStream(keyless, input);
  const double effect = largestDifference(expected, other, 1.0);
  if (row.effect == Changes) {
    EXPECT_GT(effect, kLeastEffect);
  } else {
    EXPECT_LT(effect, 1e-9);
  }
}

std::string rowName(const testing::TestParamInfo<Row>& info) { return info.param.name; }

Row streamed(const std::string& name, int generation, int in, int model, int out, int ms,
             bool int16) {
  Row row{.name = name, .generation = generation, .modelRate = model, .inRate = in, .outRate = out};
  row.ms = ms;
  row.int16 = int16;
  return row;
}

// Every generation at every model rate with both frame lengths, the frame durations in turn so that
// each frame length meets each of them.
std::vector<Row> everyShape() {
  std::vector<Row> rows;
  for (size_t i = 0; i < noiseCleaners().size(); ++i) {
    const int generation = static_cast<int>(i) + 1;
    for (const int rate : {8000, 16000, 32000}) {
      for (const int frameMs : {30, 32}) {
        const int ms = 10 * (1 + static_cast<int>(rows.size() + i) % 4);
        const std::string name = "Generation" + std::to_string(generation) + "At" +
                                 std::to_string(rate / 1000) + "kFrame" + std::to_string(frameMs) +
                                 "Calls" + std::to_string(ms);
        rows.push_back(streamed(name, generation, rate, rate, rate, ms, false));
        rows.back().frameMs = frameMs;
      }
    }
  }
  return rows;
}
INSTANTIATE_TEST_SUITE_P(Shapes, Stream, testing::ValuesIn(everyShape()), rowName);

INSTANTIATE_TEST_SUITE_P(Rates, Stream,
                         testing::Values(streamed("From8k", 1, 8000, 8000, 48000, 20, true),
                                         streamed("From12k", 2, 12000, 16000, 24000, 10, true),
                                         streamed("From44k", 5, 44100, 32000, 48000, 30, false),
                                         streamed("From48kInt16", 5, 48000, 32000, 16000, 40, true),
                                         streamed("From88k", 4, 88200, 8000, 12000, 20, false),
                                         streamed("ModelAboveInput", 2, 8000, 32000, 88200, 10,
                                                  false)),
                         rowName);

INSTANTIATE_TEST_SUITE_P(
    Models, Stream,
    testing::Values(
        Row{.name = "WholeBand", .reshape = [](Shape& s) { s.begin = 0, s.band = 257; }},
        Row{.name = "OneLayer", .reshape = [](Shape& s) { s.hidden = {}; }},
        Row{.name = "NoHistory",
            .generation = 2,
            .reshape = [](Shape& s) { s.preview = s.nat = 1; }},
        Row{.name = "OneGate", .generation = 5, .reshape = [](Shape& s) { s.gateWidth = 1; }},
        Row{.name = "Shallow", .generation = 5, .reshape = [](Shape& s) { s.hidden = {12}; }},
        Row{.name = "Clamped", .generation = 2, .int16 = true, .gain = 6},
        // The followers of loud frames remember four seconds.
        Row{.name = "LongGate", .tuning = "ENABLE_THRESH_CUT TRUE", .ms = 40, .seconds = 7},
        Row{.name = "LongRescale", .generation = 3, .ms = 40, .seconds = 7},
        Row{.name = "LimitOverClosedGate",
            .generation = 2,
            .tuning = "ENABLE_THRESH_CUT TRUE, SMOOT_COEF 0.5",
            .limit = 20},
        Row{.name = "LimitAndVolume",
            .generation = 5,
            .tuning = "VOLUME_UP TRUE, VOLUME_UP_PERCENT 30",
            .limit = 12}),
    rowName);

// Which values are taken and which warnings printed, tuning_test.cpp shows; here, what they do.
INSTANTIATE_TEST_SUITE_P(
    Keys, Stream,
    testing::Values(
        Row{"SmoothStoresLaterStages", 1,
            "SMOOT_COEF 0.4, ENABLE_RM_THRESHOLD TRUE, ENABLE_THRESH_CUT TRUE, "
            "THRESH_CUT_REF_EN 1000"},
        Row{"NoWindowAfter", 1, "ENABLE_WINDOW_AFTER true"},
        Row{"HammingAfter", 1, "WINDOW_AFTER HAMMING"},
        Row{"ClipPointIsWhole", 1, "ENABLE_CLIP_FIX TRUE, CLIP_FIX_POINT 900.9"},
        Row{"SuffixOfSecond", 1, "SMOOT_COEF_v0_0_2 0.3", Inert},
        Row{"AllWrong", 1,
            "SMOOT_COEF 0, ENABLE_CLIP_FIX TRUE, CLIP_FIX_POINT 40000, ENABLE_THRESH_CUT TRUE, "
            "THRESH_CUT_REF_EN 0.9, ENABLE_RM_THRESHOLD TRUE, RM_THRESHOLD 0"},
        Row{.name = "Everything",
            .generation = 2,
            .tuning = "SMOOT_COEF 0.5, SMOOT_RM_MODIFY TRUE, HIGH_FREQ_SMOOT TRUE, ENABLE_CLIP_FIX "
                      "TRUE, CLIP_FIX_POINT 1500, ENABLE_THRESH_CUT TRUE, ENABLE_RM_THRESHOLD TRUE",
            .reshape = [](Shape& s) { s.begin = 100, s.band = 60; },
            .gain = 30},
        Row{"WindowAfterIsNotRead", 2, "ENABLE_WINDOW_AFTER FALSE, WINDOW_AFTER HAMMING", Inert},
        Row{"NoRescale", 3, "ENABLE_RESCALE no"},
        Row{"ReferencesAlone", 3, "RESCALE_REF_AMPL 9000, RESCALE_REF_EN 5", Inert},
        Row{"ReferencesWithThreshold", 3,
            "ENABLE_RM_THRESHOLD TRUE, RM_THRESHOLD 0, RESCALE_REF_AMPL 9000, RESCALE_REF_EN "
            "2000000"},
        Row{"ClipPointIsReal", 3, "ENABLE_CLIP_FIX TRUE, CLIP_FIX_POINT 900.9"},
        Row{"CutReferenceIsReal", 4,
            "ENABLE_THRESH_CUT TRUE, THRESH_CUT_REF_EN 1.5, SMOOT_COEF 0.6"},
        Row{.name = "Rate0",
            .generation = 4,
            .tuning = "COMPRESS_RATE_v0_0_5 0, SMOOT_COEF 0.2",
            .reshape = [](Shape& s) { s.compress = 0; }},
        Row{.name = "Rate3",
            .generation = 5,
            .tuning = "COMPRESS_RATE 3, SMOOT_RM_MODIFY TRUE",
            .reshape = [](Shape& s) { s.compress = 3; }},
        Row{"RateOfItsOwnSuffix", 4, "COMPRESS_RATE 0", Inert},
        Row{"VolumeUp", 5, "VOLUME_UP TRUE, VOLUME_UP_PERCENT 50, CLIP_FIX_POINT 1000"},
        Row{"VolumeTooHigh", 5, "VOLUME_UP TRUE, VOLUME_UP_PERCENT 200", Inert},
        Row{.name = "SkipSilence", .generation = 5, .tuning = "SKIP_FRAME TRUE", .pause = true},
        Row{.name = "FaintIsNoSilence",
            .generation = 5,
            .tuning = "SKIP_FRAME TRUE",
            .effect = Inert,
            .pause = true,
            .faint = true},
        Row{"AllStages", 5,
            "SMOOT_COEF 0.7, SMOOT_RM_MODIFY TRUE, ENABLE_THRESH_CUT TRUE, THRESH_CUT_REF_EN 300, "
            "ENABLE_RM_THRESHOLD TRUE, RM_THRESHOLD 0.6, RESCALE_REF_AMPL 4000"}),
    rowName);

TEST(Reset, TheDetectorScoresAsANewOne) {
  Sdk sdk;
  ASSERT_EQ(sdk.load("voice", makeVadModel(), {{"ORVEL_VAD_ENABLE_STATE_RESET_v0_0_1", "TRUE"}}),
            0);
  void* session = Orv_VAD_CreateSession(44100, 10, "voice");
  ASSERT_NE(session, nullptr);
  const std::vector<int16_t> input = speechLike(44100, 1.0);
  const auto scores = [&] {
    std::vector<float> all;
    for (size_t at = 0; at + 441 <= input.size(); at += 441) {
      EXPECT_EQ(Orv_VAD_ProcessInt16(session, &input[at], 441, &all.emplace_back()), 0);
    }
    return all;
  };
  const std::vector<float> first = scores();
  EXPECT_NE(scores(), first);
  ASSERT_EQ(Orv_VAD_ResetSession(session), 0);
  EXPECT_EQ(scores(), first);
}

}  // namespace
}  // namespace orvel_test
