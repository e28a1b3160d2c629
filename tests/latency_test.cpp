// The reported latency against the delay of a pulse sent through an all-pass model, and streams cut
// into frames of different durations against each other.
#include <cmath>

#include "tests/support/sdk.h"
#include "tests/support/signals.h"

namespace orvel_test {
namespace {

constexpr int kRates[] = {8000, 12000, 16000, 24000, 32000, 44100, 48000, 88200, 96000};

uint32_t latencyOf(void* session) {
  uint32_t samples = 0;
  EXPECT_EQ(Orv_NC_GetLatency(session, &samples), 0);
  return samples;
}

// Centre of the pulse's energy in samples, to a fraction of one.
double centreOf(const std::vector<float>& stream) {
  double weight = 0.0, moment = 0.0;
  for (size_t i = 0; i < stream.size(); ++i) {
    const double energy = static_cast<double>(stream[i]) * static_cast<double>(stream[i]);
    weight += energy;
    moment += energy * static_cast<double>(i);
  }
  return moment / weight;
}

void expectLatency(const char* model, int inRate, int outRate, int ms) {
  SCOPED_TRACE(testing::Message() << model << ' ' << inRate << " -> " << outRate << ", " << ms);
  void* session = Orv_NC_CreateSession(inRate, outRate, ms, model);
  ASSERT_NE(session, nullptr);
  const int centre = inRate / 10;
  const std::vector<float> out =
      cleanStream(session, pulse(inRate, 0.24, centre), samplesPerFrame(inRate, ms),
                  samplesPerFrame(outRate, ms));
  const double delay = centreOf(out) - static_cast<double>(centre) * outRate / inRate;
  EXPECT_NEAR(delay, latencyOf(session), 1.0);
  if (getenv("SHOW"))
    fprintf(stderr, "%s %d %d %d %f\n", model, inRate, outRate, ms, delay - latencyOf(session));
  EXPECT_EQ(Orv_NC_CloseSession(session), 0);
}

TEST(Latency, EveryPairOfRates) {
  Sdk sdk;
  ASSERT_EQ(sdk.load("pass16", makeAllPass(16000)), 0);
  for (const int inRate : kRates) {
    for (const int outRate : kRates)
      expectLatency("pass16", inRate, outRate, 10);
  }
}

TEST(Latency, EveryModelFrameAndDuration) {
  Sdk sdk;
  for (const int rate : {8000, 16000, 32000}) {
    for (const int frameMs : {30, 32}) {
      const std::string name =
          "pass" + std::to_string(rate / 1000) + "k" + std::to_string(frameMs) + "ms";
      ASSERT_EQ(sdk.load(name, makeAllPass(rate, frameMs)), 0);
      for (const int ms : {10, 20, 30, 40}) {
        expectLatency(name.c_str(), rate, rate, ms);
        expectLatency(name.c_str(), 44100, 48000, ms);
        expectLatency(name.c_str(), 96000, 12000, ms);
      }
    }
  }
}

// The best agreement of two streams, the second `shift` - 1 to `shift` + 1 samples ahead.
double disagreement(const std::vector<float>& late, const std::vector<float>& early, int shift,
                    int slack) {
  double best = 1e9;
  for (int lag = shift - slack; lag <= shift + slack; ++lag) {
    double largest = 0.0;
    for (int i = 0; i < static_cast<int>(early.size()); ++i) {
      const int at = i + lag;
      if (at < 0 || at >= static_cast<int>(late.size())) continue;
      largest = std::fmax(largest,
                          std::fabs(static_cast<double>(late[at]) - static_cast<double>(early[i])));
    }
    best = std::fmin(best, largest);
  }
  return 32768.0 * best;
}

struct Cut {
  const char* name;
  const char* version;
  int modelRate, inRate, outRate;
  int compress;
  Keys keys;
  // Largest difference, of 32768. Without rate conversion the same frames are cut, so nothing may
  // differ; with it the conversion's clock rounds differently at other block lengths. (At an output
  // of 44.1 kHz the delays differ by fractions of a sample, so there is nothing to compare.)
  double tolerance;
};
void PrintTo(const Cut& cut, std::ostream* out) { *out << cut.name; }

class CutStream : public testing::TestWithParam<Cut> {};

TEST_P(CutStream, DoesNotDependOnTheCut) {
  const Cut& cut = GetParam();
  Shape shape;
  shape.version = cut.version;
  shape.rate = cut.modelRate;
  shape.compress = cut.compress;
  Sdk sdk;
  ASSERT_EQ(sdk.load("model", makeModel(shape), cut.keys), 0);
  const std::vector<float> input = toFloat(speechLike(cut.inRate, 0.96));
  std::vector<float> reference;
  int referenceDelay = 0;
  for (const int ms : {10, 20, 30, 40}) {
    void* session = Orv_NC_CreateSession(cut.inRate, cut.outRate, ms, "model");
    ASSERT_NE(session, nullptr);
    const std::vector<float> output = cleanStream(session, input, samplesPerFrame(cut.inRate, ms),
                                                  samplesPerFrame(cut.outRate, ms));
    const int delay = static_cast<int>(latencyOf(session));
    if (reference.empty()) {
      reference = output;
      referenceDelay = delay;
      continue;
    }
    const bool exact = cut.tolerance == 0.0;
    EXPECT_LE(disagreement(reference, output, referenceDelay - delay, exact ? 0 : 1), cut.tolerance)
        << ms << " ms";
  }
}

INSTANTIATE_TEST_SUITE_P(
    Cuts, CutStream,
    testing::Values(Cut{"First", "0.0.1", 16000, 16000, 16000, 0, {}, 0.0},
                    Cut{"SecondWithGate",
                        "0.0.2",
                        8000,
                        8000,
                        8000,
                        0,
                        {{"ORVEL_ENABLE_THRESH_CUT_v0_0_2", "TRUE"},
                         {"ORVEL_SMOOT_COEF_v0_0_2", "0.3"}},
                        0.0},
                    Cut{"Third", "0.0.3", 32000, 32000, 32000, 0, {}, 0.0},
                    Cut{"Fourth", "0.0.4", 16000, 16000, 16000, 1, {}, 0.0},
                    Cut{"Fifth", "0.0.5", 16000, 16000, 16000, 2, {}, 0.0},
                    Cut{"FifthFrom48k", "0.0.5", 16000, 48000, 48000, 2, {}, 3.0},
                    Cut{"FirstFrom44k", "0.0.1", 16000, 44100, 16000, 0, {}, 3.0}),
    [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace orvel_test
