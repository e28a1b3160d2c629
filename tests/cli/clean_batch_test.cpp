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
  std::vector<std::string> words = {"clean", "--jobs", "4"};
  std::vector<std::string> good;
  for (int i = 0; i < 8; ++i) {
    const std::string name = std::string(1, static_cast<char>('a' + i)) + ".wav";
    words.push_back(dir_.file(name));
    if (i % 2 == 1) {
      dir_.write(name, "RIFF");
    } else {
      save(dir_.file(name), speech(i % 4 == 0 ? 48000 : 16000, 0.5 + 0.1 * i));
      good.push_back(name);
    }
  }
  words.push_back(dir_.file("out"));  // a directory as the last word works like --out-dir
  const Result result = run(words);
  EXPECT_EQ(result.code, 6);
  EXPECT_NE(result.err.find("b.wav: no audio"), std::string::npos) << result.err;
  EXPECT_NE(result.err.find("4 of 8 inputs failed"), std::string::npos) << result.err;
  EXPECT_EQ(list("out"), good);
  for (const std::string& name : good) {
    ASSERT_EQ(run({"clean", "--out-dir", dir_.file("new/folder"), dir_.file(name)}).code, 0);
    EXPECT_EQ(load(dir_.file("out/" + name)).samples, load(dir_.file("new/folder/" + name)).samples)
        << "parallel jobs give the samples of single ones";
  }
  // The same again: every output is there already.
  const auto before = std::filesystem::last_write_time(dir_.file("out/a.wav"));
  EXPECT_EQ(run(words).code, 6);
  EXPECT_EQ(std::filesystem::last_write_time(dir_.file("out/a.wav")), before);
}

TEST_F(CleanBatch, RefusedCommandLinesSayWhy) {
  save(dir_.file("a.wav"), speech(16000, 0.2));
  save(dir_.file("b.wav"), speech(16000, 0.2));
  std::filesystem::create_directory(dir_.file("sub"));
  save(dir_.file("sub/a.wav"), speech(16000, 0.2));
  const std::string a = dir_.file("a.wav");
  const std::string b = dir_.file("b.wav");
  const std::string o = dir_.file("o.wav");
  struct {
    std::vector<std::string> words;
    int code;
    const char* reason;
  } const cases[] = {
      {{"claen", a, o}, 2, "no command 'claen'; did you mean 'clean'?"},
      {{"remove", a, o}, 2, "no command 'remove'; there are: clean, vad, info, models, keys"},
      {{"clean", a}, 2, "an input and an output"},
      {{"clean", a, a}, 2, "is input and output at once"},
      {{"clean", "--force", a, dir_.path() + "/./a.wav"}, 2, "is input and output at once"},
      {{"clean", a, b}, 4, "exists already; --force"},
      {{"clean", a, b, dir_.file("none")}, 2, "need a directory"},
      {{"clean", "--out-dir", a, b}, 4, "cannot create"},
      {{"clean", "--out-dir", dir_.file("out"), a, dir_.file("sub/a.wav")}, 2, "two inputs"},
      {{"clean", "--out-dir", dir_.file("out"), "-"}, 2, "name an output file"},
      {{"clean", a, dir_.file("none/o.wav")}, 4, "cannot create a file"},
      {{"clean", a, dir_.file("o.xyz")}, 2, "no audio format is known"},
      {{"clean", "--container", "wav", a, o}, 2, "for pipes only"},
      {{"clean", "--set", "KEY", a, o}, 2, "is not KEY=VALUE"},
      {{"clean", "--set", "A B=1", a, o}, 2, "one word"},
      {{"clean", "--set", "A= ", a, o}, 2, "the value is empty"},
      {{"clean", "--set", "WEIGHT=x.bin", a, o}, 2, "--model"},
      {{"clean", "--attenuation-limit", "-1", a, o}, 2, "attenuation-limit"},
      {{"clean", "--attenuation-limit", "nan", a, o}, 2, "attenuation-limit"},
      {{"clean", "--model", "nobody", a, o}, 5, "no model 'nobody'"},
      {{"clean", "--model", "orvel-vad", a, o}, 5, "is for voice activity"},
      {{"clean", "-", o}, 2, "need --rate"},
      {{"clean", "--rate", "16000", "--format", "s8", "-", "-"}, 2, "--format"},
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
  dir_.write("models/lost.ctl", "WEIGHT nowhere.bin\n");
  dir_.write("models/empty.ctl", "# nothing\n");
  TestModel odd = makeAllPass(16000);
  odd.bins = 200;
  addModel("odd-bins", odd);
  for (const auto& [model, reason] :
       std::vector<std::pair<std::string, std::string>>{{"cut", "cut-weights.bin"},
                                                        {"lost", "nowhere.bin"},
                                                        {"empty", "WEIGHT"},
                                                        {"odd-bins", "CoefficientNumber"}}) {
    for (const char* option : {"-j1", "--set=ORVEL_SMOOT_COEF_v0_0_2=1"}) {
      const Result result =
          run({"clean", option, "--model", model, dir_.file("a.wav"), dir_.file("o.wav")});
      EXPECT_EQ(result.code, 5) << model;
      EXPECT_NE(result.err.find(reason), std::string::npos) << result.err;
      EXPECT_NE(result.err.find(model + ".ctl: "), std::string::npos) << result.err;
    }
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

// True when the process has a file open in a folder, be it one without a name.
bool writesInto(pid_t process, const std::string& folder) {
  std::error_code error;
  const std::filesystem::path fds = "/proc/" + std::to_string(process) + "/fd";
  for (std::filesystem::directory_iterator entry(fds, error), end; !error && entry != end;
       entry.increment(error)) {
    std::error_code ignored;
    if (std::filesystem::read_symlink(entry->path(), ignored).string().starts_with(folder)) {
      return true;
    }
  }
  return false;
}

TEST_F(CleanBatch, WhatEndsItEarlyLeavesNothingBehind) {
  // Long enough that it cannot be done before the signal comes.
  Sound in = speech(48000, 2.0, 2);
  const std::vector<float> once = in.samples;
  for (int i = 0; i < 149; ++i) {
    in.samples.insert(in.samples.end(), once.begin(), once.end());
  }
  save(dir_.file("long.wav"), in);
  dir_.write(".stdin", "");
  for (const auto& [number, code] :
       std::vector<std::pair<int, int>>{{SIGINT, 130}, {SIGTERM, 130}, {SIGKILL, 128 + SIGKILL}}) {
    const pid_t child = start(dir_, {"clean", dir_.file("long.wav"), dir_.file("out/o.wav")});
    for (int wait = 0; wait < 2000 && !writesInto(child, dir_.file("out")); ++wait) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_TRUE(writesInto(child, dir_.file("out"))) << "no output was begun";
    kill(child, number);
    EXPECT_EQ(finish(dir_, child).code, code);
    EXPECT_EQ(list("out"), std::vector<std::string>{});
  }
  // A file that may not grow any further: SIGXFSZ.
  const Result full = shell(dir_, "ulimit -f 100; \"$ORVEL\" clean long.wav out/o.wav");
  EXPECT_EQ(full.code, 4) << full.err;
  EXPECT_NE(full.err.find("out/o.wav: "), std::string::npos) << full.err;
  EXPECT_EQ(list("out"), std::vector<std::string>{});
}

}  // namespace
}  // namespace orvel_test
