// `orvel info`, `models`, `keys` and the help.
#include <nlohmann/json.hpp>

#include "tests/cli/program.h"

namespace orvel_test {
namespace {

class Info : public CliTest {};

// Numbers that the network multiplies or adds: no version reads the last layer of one of its branches.
size_t weightsOf(const TestModel& model) {
  const bool detects = model.generation() == 0;
  const bool scales = model.generation() == 1 || model.generation() == 2;
  const auto sum = [](const auto& list, bool lastIsUnused, auto size) {
    size_t total = 0;
    for (size_t i = 0; i + (lastIsUnused ? 1 : 0) < list.size(); ++i) {
      total += size(list[i]);
    }
    return total;
  };
  const auto matrix = [](const Dense& dense) { return dense.data.size(); };
  const auto vector = [](const Floats& floats) { return floats.size(); };
  return sum(model.linear, !detects, matrix) + sum(model.linearBias, !detects, vector) +
         sum(model.nonLinear, detects, matrix) + sum(model.nonLinearBias, detects, vector) +
         sum(model.gru, false, matrix) + sum(model.gruBias, false, vector) +
         (scales ? sum(model.multiplier, false, vector) + sum(model.reducer, false, vector) : 0);
}

TEST_F(Info, TellsWhatAModelHolds) {
  const TestModel model = makeModel({.version = "0.0.5", .compress = 2});
  addModel("five", model, "ORVEL_SMOOT_COEF_v0_0_5 0.6\n");
  for (const std::string& name : {std::string("five"), models_ + "/five.ctl"}) {
    const Result result = run({"info", "--json", name});
    ASSERT_EQ(result.code, 0) << result.err;
    const auto document = nlohmann::json::parse(result.out);
    EXPECT_EQ(document.at("version"), "0.0.5");
    EXPECT_EQ(document.at("sample_rate"), 16000);
    EXPECT_EQ(document.at("frame_length"), 512);
    EXPECT_EQ(document.at("step"), 256);
    EXPECT_EQ(document.at("latency"), 496);  // 31 ms
    EXPECT_EQ(document.at("weights"), weightsOf(model));
    EXPECT_EQ(document.at("keys").at("ORVEL_SMOOT_COEF_v0_0_5"), "0.6");
  }
  const Result text = run({"info", "five"});
  EXPECT_NE(text.out.find("weights       " + std::to_string(weightsOf(model)) + "\n"),
            std::string::npos)
      << text.out;
}

TEST_F(Info, TakesWeightFilesAndSaysWhyAModelIsRefused) {
  const Result weights = run({"info", models_ + "/orvel-32k.bin"});
  EXPECT_EQ(weights.code, 0) << weights.err;
  EXPECT_NE(weights.out.find("32000 Hz"), std::string::npos);
  TestModel odd = makeAllPass(16000);
  odd.bins = 200;
  addModel("odd-bins", odd);
  const Result refused = run({"info", "odd-bins"});
  EXPECT_EQ(refused.code, 5);
  EXPECT_NE(refused.out.find("CoefficientNumber"), std::string::npos) << refused.out;
}

TEST_F(Info, DamagedFilesAreNamed) {
  dir_.write("cut.bin", "\x07");
  dir_.write("empty.bin", "");
  dir_.write("lost.ctl", "WEIGHT nothing.bin\n");
  dir_.write("keys.ctl", "KEY value\n");
  for (const char* name : {"cut.bin", "empty.bin", "lost.ctl", "keys.ctl", "missing.bin"}) {
    const Result result = run({"info", dir_.file(name)});
    EXPECT_EQ(result.code, 5) << name;
    const std::string named = name == std::string("lost.ctl") ? "nothing.bin" : name;
    EXPECT_NE(result.err.find(named + ": "), std::string::npos) << result.err;
  }
  EXPECT_NE(run({"info", "nobody"}).err.find("no model 'nobody'"), std::string::npos);
}

TEST_F(Info, ListsModelsAndKeys) {
  const Result models = run({"models", "--json"});
  ASSERT_EQ(models.code, 0) << models.err;
  const auto list = nlohmann::json::parse(models.out);
  ASSERT_EQ(list.size(), 4U);
  EXPECT_EQ(list[3].at("name"), "orvel-vad");
  EXPECT_EQ(list[3].at("weights"), weightsOf(makeVadModel()));
  const auto keys = nlohmann::json::parse(run({"keys", "--json"}).out);
  EXPECT_EQ(keys.size(), 19U);
  EXPECT_EQ(keys[0].at("names").at(4), "ORVEL_SMOOT_COEF_v0_0_5");
}

TEST_F(Info, HelpSaysWhatBelongsToACommand) {
  EXPECT_EQ(run({}).code, 2);
  EXPECT_EQ(run({"--version"}).code, 0);
  const std::string all = run({"--help"}).out;
  EXPECT_NE(all.find("Exit codes"), std::string::npos);
  EXPECT_EQ(all.find("Examples"), std::string::npos);
  EXPECT_NE(run({"clean", "--help"}).out.find("orvel clean talk.wav"), std::string::npos);
  EXPECT_EQ(run({"vad", "--help"}).out.find("orvel clean"), std::string::npos);
  EXPECT_EQ(run({"keys", "--help"}).out.find("Examples"), std::string::npos);
}

}  // namespace
}  // namespace orvel_test
