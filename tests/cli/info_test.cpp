// `orvel info`, `models` and `keys`, and the weight-file writer.
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "tests/cli/program.h"
#include "tools/weight_writer.h"

namespace orvel_test {
namespace {

namespace TOOLS = ORVEL::TOOLS;

class Info : public CliTest {};

TEST_F(Info, TellsWhatAModelHolds) {
  const Result result = orvel(dir_, {"info", "--json", ORVEL_GATE});
  ASSERT_EQ(result.code, 0) << result.err;
  const auto document = nlohmann::json::parse(result.out);
  EXPECT_EQ(document.at("version"), "0.0.1");
  EXPECT_EQ(document.at("sample_rate"), 16000);
  EXPECT_EQ(document.at("frame_length"), 512);
  EXPECT_EQ(document.at("step"), 256);
  EXPECT_EQ(document.at("latency"), 496);  // 31 ms
  // MU and SD, one matrix, one bias, and the 1 x 1 matrix that is only counted.
  EXPECT_EQ(document.at("parameters"), 2 * 771 + 771 * 257 + 257 + 1);
  EXPECT_EQ(document.at("keys").at("ORVEL_SMOOT_COEF_v0_0_1"), "0.6");
  for (const auto& record : document.at("records")) {
    if (record.at("name") != "WeightNonLinear") continue;
    EXPECT_EQ(record.at("type"), "1 matrices");
    EXPECT_EQ(record.at("shape"), "771 x 257");
    EXPECT_NEAR(record.at("range").at(0).get<double>(), -0.8, 1e-6);
  }
}

TEST_F(Info, TakesWeightFilesAndSaysWhyAModelIsRefused) {
  const Result weights = orvel(dir_, {"info", models_ + "/orvel-32k.bin"});
  EXPECT_EQ(weights.code, 0) << weights.err;
  EXPECT_NE(weights.out.find("32000 Hz"), std::string::npos);
  TestModel odd = makeAllPass(16000);
  odd.bins = 200;
  addModel("odd-bins", odd);
  const Result refused = orvel(dir_, {"info", models_ + "/odd-bins.ctl"});
  EXPECT_EQ(refused.code, 5);
  EXPECT_NE(refused.out.find("CoefficientNumber"), std::string::npos) << refused.out;
}

TEST_F(Info, DamagedFilesAreNamed) {
  dir_.write("cut.bin", "\x07");
  dir_.write("empty.bin", "");
  dir_.write("lost.ctl", "WEIGHT nothing.bin\n");
  dir_.write("keys.ctl", "KEY value\n");
  for (const char* name : {"cut.bin", "empty.bin", "lost.ctl", "keys.ctl", "missing.bin"}) {
    const Result result = orvel(dir_, {"info", dir_.file(name)});
    EXPECT_EQ(result.code, 5) << name;
    const std::string named = name == std::string("lost.ctl") ? "nothing.bin" : name;
    EXPECT_NE(result.err.find(named + ": "), std::string::npos) << result.err;
  }
}

TEST_F(Info, ListsModelsAndKeys) {
  const Result models = run({"models", "--json"});
  ASSERT_EQ(models.code, 0) << models.err;
  EXPECT_EQ(nlohmann::json::parse(models.out).size(), 4U);
  const Result keys = orvel(dir_, {"keys", "--json"});
  ASSERT_EQ(keys.code, 0);
  for (const auto& key : nlohmann::json::parse(keys.out)) {
    const std::string stem = key.at("stem");
    EXPECT_TRUE(stem.starts_with("ORVEL_")) << stem;
    EXPECT_FALSE(key.at("meaning").get<std::string>().empty()) << stem;
  }
  EXPECT_EQ(orvel(dir_, {}).code, 2);
  EXPECT_EQ(orvel(dir_, {"--version"}).code, 0);
  EXPECT_NE(orvel(dir_, {"--help"}).out.find("Exit codes"), std::string::npos);
}

TEST(WeightWriter, WritesEveryTypeAsTheFormatHasIt) {
  const TempDir dir;
  ORVEL::CONTAINERS::Matrix matrix = TOOLS::zeroMatrix(2, 3);
  TOOLS::at(matrix, 1, 2) = 4.5F;
  TOOLS::writeWeights(dir.file("w.bin"),
                      {{"Real", 1.5F},
                       {"Whole", std::int32_t{-2}},
                       {"Word", std::string("0.0.1")},
                       {"Vector", std::vector<float>{1.0F, 2.0F}},
                       {"Matrix", matrix},
                       {"Vectors", std::vector<std::vector<float>>{{}, {3.0F}}},
                       {"Matrices", std::vector<ORVEL::CONTAINERS::Matrix>{matrix, matrix}}});
  const Dense dense{2, 3, {0, 0, 0, 0, 0, 4.5F}};
  const std::string expected = WeightBuilder()
                                   .real("Real", 1.5F)
                                   .integer("Whole", -2)
                                   .text("Word", "0.0.1")
                                   .floats("Vector", {1.0F, 2.0F})
                                   .matrix("Matrix", dense)
                                   .lists("Vectors", {{}, {3.0F}})
                                   .matrices("Matrices", {dense, dense})
                                   .bytes();
  std::ifstream file(dir.file("w.bin"), std::ios::binary);
  EXPECT_EQ(std::string((std::istreambuf_iterator<char>(file)), {}), expected);

  matrix.data.pop_back();
  EXPECT_THROW(TOOLS::writeWeights(dir.file("w.bin"), {{"Matrix", matrix}}), std::invalid_argument);
  EXPECT_THROW(TOOLS::writeWeights(dir.file("none/w.bin"), {{"Real", 1.0F}}), std::runtime_error);
}

}  // namespace
}  // namespace orvel_test
