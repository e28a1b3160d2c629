// Weight files that lie: truncated, with huge counts, of any bytes. Reads the library's internals,
// because the exports do not tell which records were kept.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <random>

#include "containers/matrix.h"
#include "noise_canceller/noise_cleaner.h"
#include "tests/support/capture.h"
#include "tests/support/temp_dir.h"
#include "tests/support/test_model.h"
#include "utils/orvel_exception.h"
#include "weights/weight.h"

namespace orvel_test {
namespace {

using ORVEL::CONTAINERS::Matrix;
using ORVEL::WEIGHTS::Weight;

// One record of every type, an unknown type among them.
WeightBuilder everyType() {
  WeightBuilder weights;
  weights.integer("", -1).real("Real", 1.5F).text("Text", "").text("Version", "0.0.1");
  weights.floats("None", {}).floats("Floats", {1.0F, 2.0F});
  weights.matrix("Flat", {0, 7, {}}).matrix("Matrix", {2, 3, {1, 2, 3, 4, 5, 6}});
  weights.lists("NoLists", {}).lists("Lists", {{1.0F}, {}, {2.0F, 3.0F}});
  weights.raw("Unknown", 9, "").matrices("Matrices", {{1, 2, {1, 2}}, {1, 0, {}}});
  return weights;
}

class WeightFile : public testing::Test {
 protected:
  bool load(const std::string& bytes) {
    dir_.write("weights.bin", bytes);
    return weight_.emplace().load(dir_.file("weights.bin").c_str());
  }
  Weight& weight() { return *weight_; }
  TempDir dir_;
  std::optional<Weight> weight_;
};

TEST_F(WeightFile, KeepsEveryTypeExactly) {
  ASSERT_TRUE(load(everyType().bytes()));
  EXPECT_EQ(weight().error(), "");
  const auto& values = weight().values();
  EXPECT_EQ(values.size(), 11U);
  EXPECT_EQ(values.getReference<int>(""), -1);
  EXPECT_EQ(values.getReference<float>("Real"), 1.5F);
  EXPECT_EQ(values.getReference<std::string>("Version"), "0.0.1");
  EXPECT_EQ(values.getReference<Floats>("Floats"), (Floats{1.0F, 2.0F}));
  EXPECT_EQ(values.getReference<Matrix>("Flat").dim1, 7U);
  const Matrix& matrix = values.getReference<Matrix>("Matrix");
  EXPECT_EQ(matrix.dim0, 2U);
  EXPECT_EQ(matrix.dim1, 3U);
  EXPECT_EQ(matrix.data, (Floats{1, 2, 3, 4, 5, 6}));
  EXPECT_TRUE(values.getReference<std::vector<Floats>>("NoLists").empty());
  EXPECT_EQ(values.getReference<std::vector<Floats>>("Lists")[2], (Floats{2.0F, 3.0F}));
  EXPECT_EQ(values.getReference<std::vector<Matrix>>("Matrices")[1].dim0, 1U);
  EXPECT_EQ(values.get<float>(""), nullptr) << "an int is never given out as a float";
}

TEST_F(WeightFile, TruncatedAtEveryByte) {
  const WeightBuilder weights = everyType();
  const std::string bytes = weights.bytes();
  const std::vector<WeightBuilder::Span> spans = weights.spans();
  for (size_t cut = 0; cut <= bytes.size(); ++cut) {
    SCOPED_TRACE(cut);
    size_t whole = 0;  // records stored: those that end before the cut, but for the unknown one
    bool insideName = false;
    for (size_t i = 0; i < spans.size(); ++i) {
      const bool unknown = i == 10;
      if (spans[i].end <= cut && !unknown) ++whole;
      insideName |= spans[i].begin < cut && cut < spans[i].type;
    }
    Capture capture;
    EXPECT_EQ(load(bytes.substr(0, cut)), !insideName);
    EXPECT_EQ(weight().error(), insideName ? "Corrupted weight file!" : "");
    EXPECT_EQ(weight().values().size(), insideName ? 0 : whole);
    const bool nothing = !insideName && whole == 0;
    EXPECT_EQ(capture.out(), nothing ? "Warning Nothing added from weight\n" : "");
  }
}

TEST_F(WeightFile, FirstTextOfANameIsKept) {
  WeightBuilder other;
  other.text("Text", "later");
  ASSERT_TRUE(load(WeightBuilder().text("Text", "first").bytes() + other.bytes()));
  EXPECT_EQ(weight().values().getReference<std::string>("Text"), "first");
}

long peakKilobytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

TEST_F(WeightFile, HugeCountsCostNoMemory) {
  const std::string huge = u32Bytes(0xFFFFFFFFU), half = u32Bytes(0x7FFFFFFFU);
  const std::string some(64, '\x01');
  struct Row {
    const char* name;
    uint32_t type;
    std::string payload;
  };
  const Row rows[] = {
      {"string", 2, huge + some},
      {"vector", 3, huge + some},
      {"vector of half", 3, half + some},
      {"matrix", 4, huge + huge + some},
      {"matrix whose product wraps to 0", 4, u32Bytes(0x10000) + u32Bytes(0x10000) + some},
      {"matrix whose product wraps to 4", 4, u32Bytes(0x40000001) + u32Bytes(4) + some},
      {"list", 5, huge + some},
      {"list of huge vectors", 5, u32Bytes(2) + huge + some},
      {"matrices", 6, huge + some},
      {"matrices of huge size", 6, u32Bytes(1) + huge + huge + some}};
  const long before = peakKilobytes();
  for (const Row& row : rows) {
    Capture capture;
    WeightBuilder weights;
    weights.integer("Kept", 1).raw("Huge", row.type, row.payload);
    EXPECT_TRUE(load(weights.bytes())) << row.name;
    EXPECT_EQ(weight().values().size(), 1U) << row.name;
  }
  EXPECT_FALSE(load(huge + some)) << "a name that is longer than the file";
  // Lists of empty vectors hold what the file spells out, four bytes each.
  std::string empties;
  for (int i = 0; i < 100000; ++i)
    empties += u32Bytes(0);
  ASSERT_TRUE(load(WeightBuilder().raw("Empty", 5, u32Bytes(100000) + empties).bytes()));
  EXPECT_EQ(weight().values().getReference<std::vector<Floats>>("Empty").size(), 100000U);
  EXPECT_LT(peakKilobytes() - before, 64 * 1024);
}

TEST_F(WeightFile, AnyBytesAreReadOrRefused) {
  std::mt19937 engine(11);
  const std::string good = makeModel({}).weights().bytes();
  int refused = 0, read = 0;
  for (int round = 0; round < 400; ++round) {
    std::string bytes = good.substr(0, 4000);
    for (int change = 0; change < 1 + round % 8; ++change) {
      bytes[engine() % bytes.size()] = static_cast<char>(engine());
    }
    Capture capture;
    const bool loaded = load(bytes);
    EXPECT_EQ(weight().error().empty(), loaded);
    ++(loaded ? read : refused);
  }
  EXPECT_GT(refused, 20);
  EXPECT_GT(read, 20);
}

// --- weights that load but do not fit together ------------------------------------------------

struct Misfit {
  const char* name;
  const char* version;
  void (*change)(TestModel&);
  // All of these must be in the exception's text.
  std::vector<std::string> named;
  Keys keys = {};
};
void PrintTo(const Misfit& misfit, std::ostream* out) { *out << misfit.name; }

class Misfits : public testing::TestWithParam<Misfit> {};

// Empty when the cleaner could be built.
std::string refusal(const WeightBuilder& weights, const Keys& keys) {
  const TempDir dir;
  std::string control = "WEIGHT weights.bin\n";
  for (const auto& [key, value] : keys)
    control.append(key + " " + value + "\n");
  dir.write("weights.bin", weights.bytes());
  dir.write("model.ctl", control);
  Capture capture;
  ORVEL::WEIGHTS::ModelStore store(dir.path() + "\\");
  EXPECT_TRUE(store.load("model.ctl", "model"));
  try {
    const auto kind = ORVEL::NOISE_CANCELLER::SessionKind::kNoiseCleaning;
    ORVEL::NOISE_CANCELLER::create(store, 48000, 10, "model", kind);
  } catch (const ORVEL::UTILS::ORVEL_Exception& refused) {
    return refused.what();
  }
  return "";
}

TestModel modelOf(const char* version) {
  if (std::string(version) == "VAD_0.0.1") return makeVadModel();
  Shape shape;
  shape.version = version;
  if (std::string(version) == "0.0.4") shape.compress = 1;
  if (std::string(version) == "0.0.5") shape.compress = 2;
  return makeModel(shape);
}

TEST_P(Misfits, AreRefusedByName) {
  const Misfit& misfit = GetParam();
  TestModel model = modelOf(misfit.version);
  ASSERT_EQ(refusal(model.weights(), {}), "") << "the unchanged set must be fine";
  misfit.change(model);
  const std::string text = refusal(model.weights(), misfit.keys);
  ASSERT_NE(text, "") << "was built all the same";
  for (const std::string& part : misfit.named) {
    EXPECT_NE(text.find(part), std::string::npos) << part << " is not in: " << text;
  }
}

std::string misfitName(const testing::TestParamInfo<Misfit>& row) { return row.param.name; }

Dense shaped(uint32_t rows, uint32_t cols) {
  return {rows, cols, Floats(static_cast<size_t>(rows) * cols, 0.1F)};
}

// Both branches of a layer get another shape.
void reshape(TestModel& m, size_t layer, uint32_t rows, uint32_t cols) {
  m.linear[layer] = m.nonLinear[layer] = shaped(rows, cols);
  m.linearBias[layer] = m.nonLinearBias[layer] = Floats(cols);
}

// The sets have 16 kHz, 512/256 samples, 257 bins, band [2, 50), 3 frames of history, two hidden
// layers of 12. Inputs: 192 in 0.0.1 and 0.0.2, 144 in 0.0.3, 108 in 0.0.4, 12 + 72 in 0.0.5.
using M = TestModel;

INSTANTIATE_TEST_SUITE_P(
    Frames, Misfits,
    testing::Values(
        Misfit{"Step", "0.0.1", [](M& m) { m.step = 255; }, {"FrameLength", "512", "510"}},
        Misfit{"NoStep", "0.0.2", [](M& m) { m.step = 0; }, {"Step", "0"}},
        Misfit{"NegativeStep", "0.0.3", [](M& m) { m.step = -256; }, {"Step", "-256"}},
        Misfit{"NoFrame", "0.0.4", [](M& m) { m.frameLength = 0; }, {"FrameLength", "0"}},
        Misfit{"HugeFrame", "0.0.1", [](M& m) { m.frameLength = 2147483646; }, {"getWeightInfo"}},
        Misfit{
            "NegativeFrame", "0.0.5", [](M& m) { m.frameLength = -512; }, {"FrameLength", "-512"}},
        Misfit{"Frame20ms",
               "0.0.1",
               [](M& m) { m.frameLength = 320, m.step = 160, m.bins = 161; },
               {"FrameLength", "20"}},
        Misfit{"Frame40ms",
               "0.0.5",
               [](M& m) { m.frameLength = 640, m.step = 320, m.bins = 321; },
               {"FrameLength", "40"}},
        Misfit{"FrameBeyond32ms",
               "0.0.3",
               [](M& m) { m.frameLength = 514, m.step = 257, m.bins = 258; },
               {"FrameLength", "514", "512"}},
        // Times 1000 it wraps around 32 bits to 32 ms.
        Misfit{"WrappingFrame",
               "0.0.4",
               [](M& m) { m.frameLength = 536871424, m.step = 268435712, m.bins = 268435713; },
               {"FrameLength", "536871424"}},
        Misfit{"NoRate", "0.0.2", [](M& m) { m.rate = 0; }, {"SampleRate", "0"}},
        Misfit{"NegativeRate", "0.0.2", [](M& m) { m.rate = -16000; }, {"SampleRate", "-16000"}},
        Misfit{"Bins", "0.0.3", [](M& m) { m.bins = 256; }, {"CoefficientNumber", "256", "257"}},
        Misfit{"ManyBins", "0.0.1", [](M& m) { m.bins = 1 << 30; }, {"1073741824", "257"}},
        Misfit{"BandBeyondBins", "0.0.1", [](M& m) { m.end = 258; }, {"FiltrEnd", "258", "257"}},
        Misfit{"EmptyBand", "0.0.2", [](M& m) { m.begin = 50; }, {"FiltrBegin", "FiltrEnd", "50"}},
        Misfit{"ReversedBand", "0.0.3", [](M& m) { m.begin = 60; }, {"FiltrBegin", "60", "50"}},
        Misfit{"NegativeBegin", "0.0.4", [](M& m) { m.begin = -1; }, {"FiltrBegin", "-1"}},
        Misfit{"NegativeEnd", "0.0.5", [](M& m) { m.end = -50; }, {"FiltrEnd", "-50"}},
        Misfit{"NoHistory", "0.0.1", [](M& m) { m.preview = 0; }, {"PreviewFrames", "0"}},
        Misfit{"EndlessHistory", "0.0.5", [](M& m) { m.preview = 0x7FFFFFFF; }, {"84"}},
        Misfit{"NoAverage", "0.0.2", [](M& m) { m.nat = 0; }, {"NATFrameCount", "0"}},
        Misfit{"EndlessAverage", "0.0.1", [](M& m) { m.nat = 0x7FFFFFFF; }, {"NATFrameCount"}}),
    misfitName);

INSTANTIATE_TEST_SUITE_P(
    Networks, Misfits,
    testing::Values(
        Misfit{"LongMu", "0.0.1", [](M& m) { m.mu.resize(193); }, {"MU", "193", "192"}},
        Misfit{"ShortSd", "0.0.2", [](M& m) { m.sd.resize(1); }, {"SD", "1", "192"}},
        Misfit{"RepeatedMu", "0.0.3", [](M& m) { m.mu.resize(48); }, {"MU", "48", "144"}},
        Misfit{"EmptyMu", "0.0.4", [](M& m) { m.mu.clear(); }, {"MU", "0"}},
        Misfit{"EmptySd", "0.0.5", [](M& m) { m.sd.clear(); }, {"SD", "0"}},
        Misfit{"NoLayers", "0.0.1", [](M& m) { m.linear.clear(); }, {"WeightLinear", "0"}},
        Misfit{"NonLinearLayers",
               "0.0.2",
               [](M& m) { m.nonLinear.resize(2); },
               {"WeightNonLinear", "2", "3"}},
        Misfit{"Biases",
               "0.0.3",
               [](M& m) { m.nonLinearBias.resize(2); },
               {"BaesNonLinear", "2", "3"}},
        Misfit{"LinearBiases",
               "0.0.1",
               [](M& m) { m.linearBias.resize(1); },
               {"BaesLinear", "1", "2"}},
        Misfit{"Multipliers",
               "0.0.2",
               [](M& m) { m.multiplier.resize(1); },
               {"HeadenMultiplier", "1", "2"}},
        Misfit{"ReducerLength",
               "0.0.1",
               [](M& m) { m.reducer[1].resize(11); },
               {"HeadenReducer", "11", "12"}},
        Misfit{"InputRows",
               "0.0.1",
               [](M& m) { m.nonLinear[0] = shaped(191, 12); },
               {"WeightNonLinear", "191", "192"}},
        Misfit{"BranchWidths",
               "0.0.4",
               [](M& m) { m.linear[0] = shaped(108, 11); },
               {"WeightLinear", "11", "12"}},
        Misfit{"LayerRows",
               "0.0.3",
               [](M& m) { m.nonLinear[2] = shaped(13, 48); },
               {"WeightNonLinear", "13", "12"}},
        Misfit{"BiasLength",
               "0.0.2",
               [](M& m) { m.nonLinearBias[0].resize(13); },
               {"BaesNonLinear", "13", "12"}},
        Misfit{"MaskLength", "0.0.1", [](M& m) { reshape(m, 2, 12, 47); }, {"47", "48"}},
        Misfit{"Transposed",
               "0.0.5",
               [](M& m) { m.nonLinear[0] = shaped(12, 84); },
               {"WeightNonLinear", "12", "84"}},
        Misfit{"NoColumns",
               "0.0.3",
               [](M& m) { m.nonLinear[0] = shaped(144, 0); },
               {"WeightNonLinear", "0"}},
        Misfit{"NoGate", "0.0.5", [](M& m) { m.gru.clear(); }, {"WeightGRU"}},
        Misfit{"GateRows",
               "0.0.5",
               [](M& m) { m.gru[0] = shaped(83, 12); },
               {"WeightGRU", "83", "84"}},
        Misfit{"GateWidth",
               "0.0.5",
               [](M& m) { m.gru[0] = shaped(84, 5), m.gruBias[0].resize(5); },
               {"GRU", "5", "12"}},
        Misfit{"GateBias", "0.0.5", [](M& m) { m.gruBias[0].resize(11); }, {"BaesGRU", "11", "12"}},
        Misfit{"StateAndFirstLayer",
               "0.0.5",
               [](M& m) { reshape(m, 1, 12, 9), reshape(m, 2, 9, 24); },
               {"9", "12"}},
        Misfit{"OneRecurrentLayer",
               "0.0.5",
               [](M& m) { m.nonLinear.resize(1), reshape(m, 0, 84, 24); },
               {"84"}},
        Misfit{"VoiceFeatures", "VAD_0.0.1", [](M& m) { m.mu.resize(62); }, {"MU", "62", "61"}},
        Misfit{"VoiceVariances", "VAD_0.0.1", [](M& m) { m.sd.resize(1); }, {"SD", "1", "61"}},
        Misfit{"VoiceFrame",
               "VAD_0.0.1",
               [](M& m) { m.frameLength = 256; },
               {"FrameLength", "256", "240"}},
        Misfit{"VoiceRows",
               "VAD_0.0.1",
               [](M& m) { m.linear[0] = shaped(250, 10); },
               {"WeightLinear", "250", "254"}},
        Misfit{"VoiceLayers", "VAD_0.0.1", [](M& m) { m.linear.clear(); }, {"WeightLinear", "0"}}),
    misfitName);

// Rates at which the bands of 48 bins do not end at 48, or nothing could be computed.
Misfit badRate(const char* name, const char* version, const char* rate) {
  return {name, version, [](M&) {}, {"48"}, {{"ORVEL_COMPRESS_RATE_v0_0_5", rate}}};
}

INSTANTIATE_TEST_SUITE_P(
    Compression, Misfits,
    testing::Values(badRate("Rate5", "0.0.4", "5"), badRate("RateAbove32", "0.0.5", "40"),
                    badRate("RateOf64", "0.0.4", "64"), badRate("NegativeRate", "0.0.5", "-1"),
                    badRate("RateBeyondInt", "0.0.4", "99999999999999999999"),
                    Misfit{"RateOfOtherShape",
                           "0.0.4",
                           [](M&) {},
                           {"108", "72"},
                           {{"ORVEL_COMPRESS_RATE_v0_0_5", "2"}}},
                    Misfit{"OddBand", "0.0.4", [](M& m) { m.end = 49; }, {"47"}}),
    misfitName);

}  // namespace
}  // namespace orvel_test
