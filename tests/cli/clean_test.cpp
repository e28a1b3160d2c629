// What comes out of `orvel clean` lies where it lay in the input, at every rate and channel count.
#include "tests/cli/program.h"
#include "tools/console.h"

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
                                           Case{32000, 2, 60}, Case{37800, 1, 3}, Case{44100, 2, 3},
                                           Case{48000, 1, 3}, Case{96000, 1, 3},
                                           Case{192000, 1, 3}),
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

TEST_F(Clean, TakesTheModelNearestBelowTheRecordingsRate) {
  const auto chosen = [&](int rate) {
    save(dir_.file("in.wav"), speech(rate, 0.1));
    const std::string text = run({"clean", "-vf", dir_.file("in.wav"), dir_.file("out.wav")}).err;
    const size_t at = text.find("cleaned by ");
    return at == std::string::npos ? text : text.substr(at + 11, text.find(' ', at + 11) - at - 11);
  };
  const std::pair<int, const char*> expected[] = {
      {8000, "orvel-8k"}, {11025, "orvel-8k"}, {24000, "orvel-16k"}, {44100, "orvel-32k"}};
  for (const auto& [rate, model] : expected)
    EXPECT_EQ(chosen(rate), model);
  std::filesystem::remove(models_ + "/orvel-8k.ctl");
  EXPECT_EQ(chosen(8000), "orvel-16k");
}

TEST_F(Clean, ADamagedModelIsNotPassedOverInSilence) {
  save(dir_.file("in.wav"), speech(48000, 0.3));
  const std::string weights = slurp(models_ + "/orvel-32k.bin");
  dir_.write("models/orvel-32k.bin", weights.substr(0, weights.size() / 2));
  const Result refused = run({"clean", dir_.file("in.wav"), dir_.file("out.wav")});
  EXPECT_EQ(refused.code, 5);
  EXPECT_NE(refused.err.find("orvel-32k.ctl: "), std::string::npos) << refused.err;
  EXPECT_FALSE(std::filesystem::exists(dir_.file("out.wav")));
  const Result chosen =
      run({"clean", "-v", "--model", "auto", dir_.file("in.wav"), dir_.file("out.wav")});
  EXPECT_EQ(chosen.code, 0);
  EXPECT_NE(chosen.err.find("passed over: "), std::string::npos) << chosen.err;
  EXPECT_NE(chosen.err.find("cleaned by orvel-16k"), std::string::npos) << chosen.err;
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

TEST_F(Clean, SaysOnlyWhatItIsAskedFor) {
  save(dir_.file("in.wav"), speech(16000, 0.3, 2));
  const auto words = [&](const std::string& option) {
    const Result result =
        run({"clean", option, "-f", "--model", "orvel-16k", "--set", "ORVEL_SMOOT_COEF_v0_0_2=7",
             "--set", "ORVEL_TYPO=1", dir_.file("in.wav"), dir_.file("out.wav")});
    EXPECT_EQ(result.code, 0) << result.err;
    return result.err;
  };
  EXPECT_EQ(words("--quiet"), "");
  const std::string usual = words("-j1");
  const std::string warning = "WARNING OF SMOOTH COEF";
  EXPECT_NE(usual.find(warning), std::string::npos) << usual;
  EXPECT_EQ(usual.find(warning), usual.rfind(warning)) << "once for both channels: " << usual;
  EXPECT_NE(usual.find("ORVEL_TYPO: no cleaner reads this key"), std::string::npos) << usual;
  EXPECT_EQ(usual.find("ENVIRONMENT"), std::string::npos) << usual;
  EXPECT_EQ(usual.find("cleaned "), std::string::npos) << usual;
  EXPECT_NE(words("--verbose").find("x real time"), std::string::npos);
  EXPECT_EQ(run({"clean", "-q", "-v", "a", "b"}).code, 2);
}

TEST(ProgressText, SaysHowLongItWillTake) {
  using ORVEL::TOOLS::progressText;
  EXPECT_EQ(progressText(30.0, 120.0, 25.0),
            "[#######.......................]  25%  1.2 x real time  1:15 left");
  EXPECT_EQ(progressText(1.0, 7201.0, 1.5),
            "[..............................]   0%  0.7 x real time  3:00:00 left");
  EXPECT_EQ(progressText(9.0, 8.0, 2.0), "[##############################] 100%  4.5 x real time");
  EXPECT_EQ(progressText(3.0, {}, 2.0), "3.0 s  1.5 x real time");
}

}  // namespace
}  // namespace orvel_test
