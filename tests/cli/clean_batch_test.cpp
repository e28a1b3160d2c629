// Outputs are complete or absent; what may not be overwritten is not; many inputs at once.
#include <sys/stat.h>

#include <chrono>
#include <csignal>
#include <thread>

#include "tests/cli/program.h"

namespace orvel_test {
namespace {

class CleanBatch : public CliTest {
 protected:
  CleanBatch() { std::filesystem::create_directory(dir_.file("out")); }
};

TEST_F(CleanBatch, BadInputsDoNotDisturbTheOthers) {
  std::vector<std::string> words = {"clean", "--jobs", "4", "--out-dir", dir_.file("out")};
  std::vector<std::string> good;
  for (int i = 0; i < 16; ++i) {
    const std::string name = std::string(1, static_cast<char>('a' + i)) + ".wav";
    words.push_back(dir_.file(name));
    if (i % 2 == 1) {
      dir_.write(name, "RIFF");
    } else {
      save(dir_.file(name), speech(16000, 0.4));
      good.push_back(name);
    }
  }
  const Result result = run(words);
  EXPECT_EQ(result.code, 6);
  EXPECT_NE(result.err.find("b.wav: no audio"), std::string::npos) << result.err;
  EXPECT_NE(result.err.find("8 of 16 inputs failed"), std::string::npos) << result.err;
  EXPECT_EQ(list("out"), good);
  // The same again: every output is there already.
  const auto before = std::filesystem::last_write_time(dir_.file("out/a.wav"));
  EXPECT_EQ(run(words).code, 6);
  EXPECT_EQ(std::filesystem::last_write_time(dir_.file("out/a.wav")), before);
}

TEST_F(CleanBatch, ParallelJobsGiveTheSamplesOfSingleOnes) {
  std::vector<std::string> words = {"clean", "--jobs", "4"};
  for (int i = 0; i < 6; ++i) {
    const int rate = i % 2 == 0 ? 48000 : 16000;
    Sound in = speech(rate, 0.5 + 0.1 * i);
    save(dir_.file(std::to_string(i) + ".wav"), in);
    words.push_back(dir_.file(std::to_string(i) + ".wav"));
  }
  words.push_back(dir_.file("out"));  // a directory as the last word works like --out-dir
  ASSERT_EQ(run(words).code, 0);
  for (int i = 0; i < 6; ++i) {
    const std::string name = std::to_string(i) + ".wav";
    ASSERT_EQ(run({"clean", "-f", dir_.file(name), dir_.file("single.wav")}).code, 0);
    EXPECT_EQ(load(dir_.file("out/" + name)).samples, load(dir_.file("single.wav")).samples);
  }
}

TEST_F(CleanBatch, RefusedCommandLinesSayWhy) {
  save(dir_.file("a.wav"), speech(16000, 0.2));
  save(dir_.file("b.wav"), speech(16000, 0.2));
  std::filesystem::create_directory(dir_.file("sub"));
  save(dir_.file("sub/a.wav"), speech(16000, 0.2));
  const std::string a = dir_.file("a.wav");
  const std::string b = dir_.file("b.wav");
  struct {
    std::vector<std::string> words;
    int code;
    const char* reason;
  } const cases[] = {
      {{"clean", a}, 2, "an input and an output"},
      {{"clean", a, a}, 2, "is input and output at once"},
      {{"clean", "--force", a, dir_.path() + "/./a.wav"}, 2, "is input and output at once"},
      {{"clean", a, b}, 4, "exists already; --force"},
      {{"clean", a, b, dir_.file("none")}, 2, "need a directory"},
      {{"clean", "--out-dir", dir_.file("none"), a}, 2, "is not a directory"},
      {{"clean", "--out-dir", dir_.file("out"), a, dir_.file("sub/a.wav")}, 2, "two inputs"},
      {{"clean", a, dir_.file("none/o.wav")}, 4, "cannot create a file"},
      {{"clean", a, dir_.file("o.xyz")}, 2, "no audio format is known"},
      {{"clean", "--force", a, "/dev/null"}, 4, "is not a regular file"},
      {{"clean", "--set", "KEY", a, dir_.file("o.wav")}, 2, "is not KEY=VALUE"},
      {{"clean", "--set", "A B=1", a, dir_.file("o.wav")}, 2, "one word"},
      {{"clean", "--set", "A= ", a, dir_.file("o.wav")}, 2, "the value is empty"},
      {{"clean", "--set", "WEIGHT=x.bin", a, dir_.file("o.wav")}, 2, "--model"},
      {{"clean", "--attenuation-limit", "-1", a, dir_.file("o.wav")}, 2, "attenuation-limit"},
      {{"clean", "--model", "nobody", a, dir_.file("o.wav")}, 5, "no model 'nobody'"},
      {{"clean", "--model", "orvel-vad", a, dir_.file("o.wav")}, 5, "is for voice activity"},
      {{"clean", "-", dir_.file("o.wav")}, 2, "needs --rate"},
      {{"clean", "--rate", "16000", "--format", "u8", "-", "-"}, 2, "--format"},
  };
  for (const auto& c : cases) {
    const Result result = run(c.words);
    EXPECT_EQ(result.code, c.code) << c.reason << "\n" << result.err;
    EXPECT_NE(result.err.find(c.reason), std::string::npos) << c.reason << "\n" << result.err;
  }
  EXPECT_EQ(list("."), (std::vector<std::string>{".stderr", ".stdin", ".stdout", "a.wav", "b.wav",
                                                 "models", "out", "sub"}));
}

TEST_F(CleanBatch, BrokenModelsAreNamedWithTheLibrarysReason) {
  save(dir_.file("a.wav"), speech(16000, 0.2));
  dir_.write("models/cut.ctl", "WEIGHT cut-weights.bin\n");
  dir_.write("models/cut-weights.bin", "xx");
  dir_.write("models/empty.ctl", "# nothing\n");
  TestModel odd = makeAllPass(16000);
  odd.bins = 200;
  addModel("odd-bins", odd);
  for (const auto& [model, reason] :
       std::vector<std::pair<std::string, std::string>>{{"cut", "weight isn't loaded"},
                                                        {"empty", "not a control file"},
                                                        {"odd-bins", "CoefficientNumber"}}) {
    const Result result = run({"clean", "--model", model, dir_.file("a.wav"), dir_.file("o.wav")});
    EXPECT_EQ(result.code, 5) << model;
    EXPECT_NE(result.err.find(reason), std::string::npos) << result.err;
    EXPECT_NE(result.err.find(model), std::string::npos) << result.err;
  }
}

TEST_F(CleanBatch, ForceReplacesTheFileBehindALinkAndKeepsItsMode) {
  save(dir_.file("a.wav"), speech(16000, 0.2));
  dir_.write("real.wav", "old");
  chmod(dir_.file("real.wav").c_str(), 0640);
  std::filesystem::create_symlink("real.wav", dir_.file("link.wav"));
  ASSERT_EQ(run({"clean", "--force", dir_.file("a.wav"), dir_.file("link.wav")}).code, 0);
  EXPECT_TRUE(std::filesystem::is_symlink(dir_.file("link.wav")));
  EXPECT_EQ(load(dir_.file("real.wav")).samples.size(), 3200U);
  struct stat info {};
  stat(dir_.file("real.wav").c_str(), &info);
  EXPECT_EQ(info.st_mode & 0777, 0640U);
}

TEST_F(CleanBatch, AnInterruptLeavesNothingBehind) {
  // Long enough that it cannot be done before the signal comes.
  Sound in = speech(48000, 2.0, 2);
  const std::vector<float> once = in.samples;
  for (int i = 0; i < 149; ++i)
    in.samples.insert(in.samples.end(), once.begin(), once.end());
  save(dir_.file("long.wav"), in);
  dir_.write(".stdin", "");
  const pid_t child =
      start(dir_, {"clean", "--model-dir", models_, dir_.file("long.wav"), dir_.file("out/o.wav")});
  for (int wait = 0; wait < 1000 && list("out").empty(); ++wait) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  EXPECT_EQ(list("out").size(), 1U) << "no temporary file appeared";
  kill(child, SIGINT);
  EXPECT_EQ(finish(dir_, child).code, 130);
  EXPECT_EQ(list("out"), std::vector<std::string>{});
}

}  // namespace
}  // namespace orvel_test
