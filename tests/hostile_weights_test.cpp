// Weights that load but do not fit together, or lack a value: refused with what disagrees and why.
#include <algorithm>

#include "tests/support/sdk.h"
#include "tests/support/versions.h"

namespace orvel_test {
namespace {

using M = TestModel;

struct Misfit {
  const char* version;
  void (*change)(M&);
  const char* reason;
  const char* rate = "";  // compression rate in the control file
};

// Empty when the cleaner could be built.
std::string refusal(const WeightBuilder& weights, const Keys& keys = {}) {
  Sdk sdk;
  EXPECT_EQ(sdk.load("model", weights.bytes(), keys), 0);
  Capture capture;
  return Orv_NC_CreateSession(48000, 48000, 10, "model") == nullptr ? capture.err() : "";
}

TestModel modelOf(const std::string& version) {
  const CleanerTraits& traits = *ORVEL::NOISE_CANCELLER::findCleanerVersion(version);
  return isDetector(traits) ? makeVadModel() : makeModel(shapeOf(traits));
}

Dense shaped(uint32_t rows, uint32_t cols) {
  return {rows, cols, Floats(static_cast<size_t>(rows) * cols, 0.1F)};
}

// Both branches of a layer get another shape.
void reshape(M& m, size_t layer, uint32_t rows, uint32_t cols) {
  m.linear[layer] = m.nonLinear[layer] = shaped(rows, cols);
  m.linearBias[layer] = m.nonLinearBias[layer] = Floats(cols);
}

void setFrame(M& m, int length) {
  m.frameLength = length;
  m.step = length / 2;
  m.bins = length / 2 + 1;
}

void setStatistics(M& m, size_t count) {
  m.mu.resize(count);
  m.sd.resize(count);
}

// The sets have 16 kHz, 512/256 samples, 257 bins, band [2, 50), 3 frames of history, two hidden
// layers of 12. Inputs: 192 in 0.0.1 and 0.0.2, 144 in 0.0.3, 108 in 0.0.4, 12 + 72 in 0.0.5.
const Misfit kMisfits[] = {
    {"0.0.2", [](M& m) { m.rate = 0; }, "SampleRate is 0, the least allowed is 1"},
    {"0.0.3", [](M& m) { m.step = -256; }, "Step is -256, the least allowed is 1"},
    {"0.0.1", [](M& m) { m.step = 255; }, "FrameLength is 512, 2 x Step is 510"},
    {"0.0.5", [](M& m) { setFrame(m, 640); }, "FrameLength is 640 samples or 40 ms, noise"},
    {"0.0.3", [](M& m) { setFrame(m, 514); }, "is 514, the whole length of 32 ms is 512"},
    // Times 1000 it wraps around 32 bits to 32 ms.
    {"0.0.4", [](M& m) { setFrame(m, 536871424); }, "is 536871424, the whole length of 32 ms is"},
    {"0.0.3", [](M& m) { m.bins = 256; }, "CoefficientNumber is 256, FrameLength / 2 + 1 is 257"},
    {"0.0.2", [](M& m) { m.begin = 50; }, "FiltrBegin is 50, FiltrEnd is 50 and must be above it"},
    {"0.0.1", [](M& m) { m.end = 258; }, "FiltrEnd is 258, CoefficientNumber is 257 and must not"},
    {"0.0.1", [](M& m) { m.preview = 0; }, "PreviewFrames is 0, the least allowed is 1"},
    {"0.0.5", [](M& m) { m.preview = 0x7FFFFFFF; }, "WeightNonLinear[0] rows is 84, the length of"},
    {"0.0.2", [](M& m) { m.nat = 0; }, "NATFrameCount is 0, the least allowed is 1"},
    {"0.0.1", [](M& m) { m.nat = 0x7FFFFFFF; }, "NATFrameCount is 2147483647, the most"},
    {"0.0.1", [](M& m) { m.mu.resize(193); }, "the length of SD is 192, the length of MU is 193"},
    {"0.0.3", [](M& m) { setStatistics(m, 48); }, "MU is 48, the length of the network"},
    {"0.0.4", [](M& m) { setStatistics(m, 0); }, "the length of MU is 0, the least allowed is 1"},

    {"0.0.1", [](M& m) { m.linear.clear(); }, "WeightLinear has 0 elements, the least"},
    {"0.0.2", [](M& m) { m.nonLinear.resize(2); }, "WeightNonLinear has 2 elements, the"},
    {"0.0.3", [](M& m) { m.nonLinearBias.resize(2); }, "BaesNonLinear has 2 elements, the"},
    {"0.0.2", [](M& m) { m.multiplier.resize(1); }, "HeadenMultiplier[1] is 0, the width"},
    {"0.0.1", [](M& m) { m.reducer[1].resize(11); }, "HeadenReducer[1] is 11, the width of"},
    {"0.0.1", [](M& m) { m.nonLinear[0] = shaped(191, 12); }, "WeightNonLinear[0] rows is 191"},
    {"0.0.4", [](M& m) { m.linear[0] = shaped(108, 11); }, "WeightLinear[0] columns is 11"},
    {"0.0.1", [](M& m) { m.linearBias[0].resize(11); }, "BaesLinear[0] is 11, the length of"},
    {"0.0.3", [](M& m) { reshape(m, 0, 144, 0); }, "BaesNonLinear[0] is empty, the least"},
    {"0.0.1", [](M& m) { reshape(m, 2, 12, 47); }, "BaesNonLinear[2] is 47, the mask's"},

    {"0.0.5", [](M& m) { m.gru.clear(); }, "WeightGRU has 0 elements, the network needs"},
    {"0.0.5", [](M& m) { m.gru[0] = shaped(83, 12); }, "WeightGRU[0] rows is 83, the length"},
    {"0.0.5", [](M& m) { m.gru[0] = shaped(84, 5), m.gruBias[0].resize(5); },
     "BaesGRU[0] is 5, the state's length is 12"},
    {"0.0.5", [](M& m) { reshape(m, 1, 12, 9), reshape(m, 2, 9, 24); },
     "BaesNonLinear[0] is 12, the state's length (rows of the last WeightNonLinear) is 9"},
    {"0.0.5", [](M& m) { m.nonLinear.clear(); }, "WeightNonLinear has 0 elements, the"},
    {"0.0.5", [](M& m) { reshape(m, 2, 12, 23); }, "the network's output is 23, the mask's length"},
    {"VAD_0.0.1", [](M& m) { m.sd.resize(1); }, "the length of SD is 1, the length of MU is 61"},
    {"VAD_0.0.1", [](M& m) { setStatistics(m, 62); }, "MU is 62, the number of features is 61"},
    {"VAD_0.0.1", [](M& m) { m.frameLength = 256; }, "is 256, the detector's frame is 240"},
    {"VAD_0.0.1", [](M& m) { m.linear.clear(); }, "WeightLinear has 0 elements, the least allowed"},

    // Rates at which the bands of 48 bins do not end at 48, or nothing could be computed.
    {"0.0.4", [](M&) {}, "rate 5 is 49, the number of bins is 48", "5"},
    {"0.0.5", [](M&) {}, "rate -1 leaves no single bin", "-1"},
    {"0.0.4", [](M&) {}, "rate 9223372036854775807 leaves no single bin", "99999999999999999999"},
    {"0.0.4", [](M&) {}, "WeightNonLinear[0] rows is 108, the length of its input is 72", "2"},
    {"0.0.4", [](M& m) { m.end = 49; }, "the band of 47 bins"},
};

TEST(HostileWeights, MisfitsAreRefusedWithTheirSizes) {
  for (const Misfit& misfit : kMisfits) {
    SCOPED_TRACE(testing::Message() << misfit.version << ": " << misfit.reason);
    TestModel model = modelOf(misfit.version);
    misfit.change(model);
    Keys keys;
    if (*misfit.rate != '\0') keys["ORVEL_COMPRESS_RATE_v0_0_5"] = misfit.rate;
    const std::string text = refusal(model.weights(), keys);
    EXPECT_NE(text.find(misfit.reason), std::string::npos) << "got: " << text;
  }
}

TEST(HostileWeights, EveryParameterIsRequired) {
  for (const CleanerTraits* version : cleanerVersions()) {
    const WeightBuilder whole = modelOf(version->version).weights();
    EXPECT_EQ(refusal(whole), "") << "the unchanged set must be fine";
    // From the last to the first: the first one missing is named, whichever are missing behind it.
    WeightBuilder weights = whole;
    for (size_t i = version->parameters.size(); i-- > 0;) {
      const std::string name = version->parameters[i].name;
      const std::string text = refusal(weights.drop(name));
      EXPECT_NE(text.find("ERROR DATA With Key: " + name + "doesn't exists"), std::string::npos)
          << version->version << ": " << text;
      WeightBuilder mistyped = whole;
      EXPECT_NE(refusal(mistyped.real(name, 1.0F)), "") << version->version << ' ' << name;
    }
  }
}

}  // namespace
}  // namespace orvel_test
