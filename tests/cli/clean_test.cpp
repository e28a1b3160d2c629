// What comes out of `orvel clean` lies where it lay in the input, at every rate and channel count.
#include "tests/cli/program.h"

namespace orvel_test {
namespace {

struct Case {
  int rate;
  int channels;
  // The models are all-pass, so what differs is what rate conversion does to a broad-band sound.
  double leastSnrDb;
};

class CleanRates : public CliTest, public ::testing::WithParamInterface<Case> {};

TEST_P(CleanRates, OutputIsAlignedAndAsLong) {
  const auto [rate, channels, leastSnr] = GetParam();
  // Lengths that fill no frame and no block.
  const Sound in = speech(rate, 1.2371, channels);
  save(dir_.file("in.wav"), in);
  const Result result = run({"clean", dir_.file("in.wav"), dir_.file("out.wav")});
  ASSERT_EQ(result.code, 0) << result.err;
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "");
  const Sound out = load(dir_.file("out.wav"));
  EXPECT_EQ(out.rate, rate);
  EXPECT_EQ(out.channels, channels);
  ASSERT_EQ(out.samples.size(), in.samples.size());
  for (int c = 0; c < channels; ++c) {
    EXPECT_EQ(bestLag(channel(in, c), channel(out, c)), 0) << "channel " << c;
    EXPECT_GT(snrDb(channel(in, c), channel(out, c)), leastSnr) << "channel " << c;
  }
}

// At a model's own rate nothing is lost but rounding; converted rates lose the top of the band; at
// 12 and 24 kHz and above 32 kHz everything over the model's band is gone.
INSTANTIATE_TEST_SUITE_P(All, CleanRates,
                         ::testing::Values(Case{8000, 1, 60}, Case{11025, 2, 15}, Case{12000, 1, 3},
                                           Case{16000, 6, 60}, Case{22050, 1, 15},
                                           Case{24000, 1, 3}, Case{32000, 2, 60}, Case{37800, 1, 3},
                                           Case{44100, 2, 3}, Case{48000, 1, 3}, Case{88200, 1, 3},
                                           Case{96000, 1, 3}, Case{192000, 1, 3}),
                         [](const auto& tested) {
                           return std::to_string(tested.param.rate) + "Hz" +
                                  std::to_string(tested.param.channels) + "ch";
                         });

class Clean : public CliTest {};

TEST_F(Clean, ShortestInputsKeepTheirLength) {
  for (const int frames : {0, 1, 79, 161}) {
    Sound in = speech(16000, 1.0);
    in.samples.resize(static_cast<size_t>(frames));
    save(dir_.file("in.wav"), in);
    const Result result = run({"clean", "-f", dir_.file("in.wav"), dir_.file("out.wav")});
    ASSERT_EQ(result.code, 0) << result.err;
    EXPECT_EQ(load(dir_.file("out.wav")).samples.size(), static_cast<size_t>(frames));
  }
}

TEST_F(Clean, TakesAHigherModelWhenNoneIsLowEnough) {
  std::filesystem::remove(models_ + "/orvel-8k.ctl");
  const Sound in = speech(8000, 0.6);
  save(dir_.file("in.wav"), in);
  const Result result = run({"clean", "-v", dir_.file("in.wav"), dir_.file("out.wav")});
  ASSERT_EQ(result.code, 0) << result.err;
  EXPECT_NE(result.err.find("cleaned at 16000 Hz"), std::string::npos) << result.err;
  EXPECT_EQ(bestLag(in.samples, load(dir_.file("out.wav")).samples), 0);
}

TEST_F(Clean, AttenuationLimitAndSettingsReachTheCleaner) {
  // A mask of 0.5 squares to 0.25: 12 dB down. Smoothing with 1 keeps that, the limit raises it.
  addModel("half-mask", makeFlatModel("0.0.2", 16000, 32, 0.0F), "ORVEL_SMOOT_COEF_v0_0_2 0.001\n");
  const Sound in = speech(16000, 1.0);
  save(dir_.file("in.wav"), in);
  const auto change = [&](const std::vector<std::string>& options) {
    std::vector<std::string> words = {"clean", "-f", "--model", "half-mask"};
    words.insert(words.end(), options.begin(), options.end());
    words.insert(words.end(), {dir_.file("in.wav"), dir_.file("out.wav")});
    const Result result = run(words);
    EXPECT_EQ(result.code, 0) << result.err;
    return powerDb(load(dir_.file("out.wav")).samples) - powerDb(in.samples);
  };
  const std::string fast = "ORVEL_SMOOT_COEF_v0_0_2=1";
  EXPECT_LT(change({}), -25.0);  // the control file's key holds the gains down
  EXPECT_NEAR(change({"--set", fast}), -12.04, 0.1);
  EXPECT_NEAR(change({"--set", "ORVEL_SMOOT_COEF_v0_0_2=0.5", "--set", fast}), -12.04, 0.1);
  EXPECT_NEAR(change({"--set", fast, "--attenuation-limit", "6"}), -6.0, 0.1);
}

TEST_F(Clean, TheTailIsCleanedWhereDigitalSilenceIsSkipped) {
  // A closed gate, which skipped frames would pass by.
  TestModel closed = makeModel({.version = "0.0.5", .compress = 2});
  closed.nonLinear.back().data.assign(closed.nonLinear.back().data.size(), 0.0F);
  closed.nonLinearBias.back().assign(closed.nonLinearBias.back().size(), -60.0F);
  addModel("closed", closed, "ORVEL_SKIP_FRAME_v0_0_5 TRUE\n");
  save(dir_.file("in.wav"), speech(16000, 0.5));
  const Result result =
      run({"clean", "--model", "closed", dir_.file("in.wav"), dir_.file("out.wav")});
  ASSERT_EQ(result.code, 0) << result.err;
  EXPECT_LT(powerDb(load(dir_.file("out.wav")).samples), -90.0);
}

TEST_F(Clean, WarningsOfSettingsAreShownOnce) {
  save(dir_.file("in.wav"), speech(16000, 0.3, 2));
  const Result result = run({"clean", "--model", "orvel-16k", "--set", "ORVEL_SMOOT_COEF_v0_0_2=7",
                             "--set", "ORVEL_TYPO=1", dir_.file("in.wav"), dir_.file("out.wav")});
  EXPECT_EQ(result.code, 0);
  const std::string warning = "WARNING OF SMOOTH COEF";
  const size_t first = result.err.find(warning);
  ASSERT_NE(first, std::string::npos) << result.err;
  EXPECT_EQ(result.err.find(warning, first + 1), std::string::npos) << result.err;
  EXPECT_NE(result.err.find("ORVEL_TYPO: no cleaner reads this key"), std::string::npos);
  EXPECT_EQ(result.err.find("ENVIRONMENT"), std::string::npos) << "echo shown without --verbose";
}

TEST_F(Clean, ConstructedGateLowersSteadyNoiseAndKeepsSpeech) {
  // Six seconds of faint hiss with loud speech in the last two.
  Sound in{16000, 1, SF_FORMAT_WAV | SF_FORMAT_PCM_16, {}};
  uint32_t state = 1;
  for (int i = 0; i < 96000; ++i) {
    state = state * 1664525U + 1013904223U;
    in.samples.push_back(static_cast<float>(static_cast<int32_t>(state)) * 0x1p-31F * 0.01F);
  }
  const Sound voice = speech(16000, 2.0);
  for (size_t i = 0; i < voice.samples.size(); ++i)
    in.samples[64000 + i] += voice.samples[i];
  save(dir_.file("in.wav"), in);
  const Result result =
      orvel(dir_, {"clean", "--model", ORVEL_GATE, dir_.file("in.wav"), dir_.file("out.wav")});
  ASSERT_EQ(result.code, 0) << result.err;
  const Sound out = load(dir_.file("out.wav"));
  const auto part = [](const Sound& sound, size_t from, size_t to) {
    return std::vector<float>(sound.samples.begin() + static_cast<std::ptrdiff_t>(from),
                              sound.samples.begin() + static_cast<std::ptrdiff_t>(to));
  };
  EXPECT_LT(powerDb(part(out, 48000, 63000)), powerDb(part(in, 48000, 63000)) - 6.0);
  EXPECT_GT(powerDb(part(out, 65000, 96000)), powerDb(part(in, 65000, 96000)) - 6.0);
}

}  // namespace
}  // namespace orvel_test
