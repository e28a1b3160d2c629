// Control files through the exports: status, every text, and what ends up registered.
#include "tests/support/sdk.h"
#include "tests/support/signals.h"

namespace orvel_test {
namespace {

const char* const kNothingIncluded =
    "Warning Weight name isn't included or weight has beeen included before \n\n";

std::string echo(const std::string& key, const std::string& value) {
  return "ENVIRONMENT KEY-\"" + key + "\" VALUE-\"" + value + "\"\n";
}

class Loader : public testing::Test {
 protected:
  void SetUp() override {
    const std::string weights = makeModel({}).weights().bytes();
    for (const char* name : {"voices.bin", "my.voices.bin", "my weights/noise.bin", "sub/weights",
                             "twice.bin", "abcd.bin", "abcde.bin"}) {
      dir().write(name, weights);
    }
    dir().write("empty.bin", "");
    dir().write("garbage.bin", "\x05\x00");
  }
  const TempDir& dir() const { return sdk_.dir(); }
  std::string resolved(const std::string& path) const { return dir().path() + "\\" + path; }
  std::string notLoaded(const std::string& control, const std::string& weights) const {
    return "WARNING weight isn't loaded \n control file" + control + " \n weigth file: " + weights +
           "\n";
  }
  // Loads the text as a control file; gives the status and keeps what was printed.
  int load(const std::string& text, const char* model = "model") {
    dir().write("test.ctl", text);
    return loadFile("test.ctl", model);
  }
  int loadFile(const char* control, const char* model) {
    Capture capture;
    const int status = Orv_SDK_SetModel(control, model);
    printed_ = capture.out();
    EXPECT_EQ(capture.err(), "");
    return status;
  }
  bool usable(const char* model) {
    Capture capture;
    void* session = Orv_NC_CreateSession(16000, 16000, 10, model);
    return session != nullptr && Orv_NC_CloseSession(session) == 0;
  }

  Sdk sdk_;
  std::string printed_;
};

TEST_F(Loader, EveryLineForm) {
  struct Row {
    const char* text;
    int status;
    std::string printed;
  };
  const std::string weight = "WEIGHT voices.bin\n";
  const Row rows[] = {
      {"", 2, ""},
      {"# a comment\n\n   \t\n#WEIGHT voices.bin\n", 2, ""},
      {"WEIGHT voices.bin\nKEY_WITHOUT_VALUE   \n", 2, ""},
      {"WEIGHT voices.bin", 0, weight},
      {"\t WEIGHT \v voices.bin \t\r\n", 0, weight},
      {"WEIGHT voices.bin\r\nKEY  two words \r\n", 0, weight + echo("KEY", "two words")},
      {"WEIGHT voices.bin\n # no comment\n", 0, weight + echo("#", "no comment")},
      {"KEY=1 x\nWEIGHT voices.bin\n", 0, echo("KEY=1", "x") + weight},
      {"KEY \"quoted\"\nweight voices.bin\n", 2,
       echo("KEY", "\"quoted\"") + echo("weight", "voices.bin") + kNothingIncluded},
      {"CONTROLFILE other.ctl\nWEIGHT voices.bin\n", 0,
       "WARNING there are CONTROLFILE parameter inside of controlFile, skipped\n" + weight},
      {"WEIGHT voices.bin\nWEIGHT other.bin\n", 0,
       weight + "WARNING multiple weight including, weight exists.\n"},
      {"WEIGHT a.bin\n", 2,
       std::string("WEIGHT a.bin\nERROR WEIGHT NAME ISNT BIGGER ENOUGHT\n") + kNothingIncluded},
      {"WEIGHT abcde.bin\n", 0, "WEIGHT abcde.bin\n"},
      {"WEIGHT my weights\\abcd.bin\nWEIGHT voices.bin\n", 0,
       "WEIGHT my weights\\abcd.bin\nERROR WEIGHT NAME ISNT BIGGER ENOUGHT\n" + weight},
      {"WEIGHT my weights\\noise.bin\n", 0, "WEIGHT my weights\\noise.bin\n"},
      {"WEIGHT empty.bin\n", 0, "WEIGHT empty.bin\nWarning Nothing added from weight\n"},
      {"WEIGHT missing.bin\nKEY 1\n", 2,
       "WEIGHT missing.bin\n" + notLoaded("test.ctl", resolved("missing.bin"))},
      {"WEIGHT garbage.bin\n", 2,
       "WEIGHT garbage.bin\n" + notLoaded("test.ctl", resolved("garbage.bin"))},
      {"WEIGHT X:\\dir\\weights.bin\n", 2,
       "WEIGHT X:\\dir\\weights.bin\n" + notLoaded("test.ctl", "X:\\dir\\weights.bin")},
      {"WEIGHT C:/dir/weights.bin\n", 2,
       "WEIGHT C:/dir/weights.bin\n" + notLoaded("test.ctl", resolved("C:/dir/weights.bin"))},
      {"WEIGHT voices.bin\nKEY 1\nOTHER 2\nKEY 3\nLAST 4\n", 2,
       weight + echo("KEY", "1") + echo("OTHER", "2") + echo("KEY", "3")},
  };
  int number = 0;
  for (const Row& row : rows) {
    const std::string model = "model" + std::to_string(++number);
    EXPECT_EQ(load(row.text, model.c_str()), row.status) << row.text;
    EXPECT_EQ(printed_, row.printed) << row.text;
    EXPECT_EQ(usable(model.c_str()),
              row.status == 0 && row.text != std::string("WEIGHT empty.bin\n"))
        << row.text;
  }
}

TEST_F(Loader, NamesAreRegisteredOnce) {
  EXPECT_EQ(load("WEIGHT voices.bin\n"), 0);
  EXPECT_EQ(load("WEIGHT voices.bin\n"), 2);
  EXPECT_EQ(printed_, "");
  for (const char* unnamed : {"", static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(load("WEIGHT voices.bin\n", unnamed), 2);
    EXPECT_EQ(printed_, std::string("WEIGHT voices.bin\n") + kNothingIncluded);
    EXPECT_FALSE(usable("")) << "a failed load registers nothing";
  }
}

TEST_F(Loader, WeightsOfOneNameAreReadOnce) {
  ASSERT_EQ(load("WEIGHT voices.bin\n", "first"), 0);
  EXPECT_EQ(load("WEIGHT no such folder\\voices.other\n", "second"), 0);
  EXPECT_EQ(printed_, "WEIGHT no such folder\\voices.other\n");
  EXPECT_TRUE(usable("second"));

  // Weights of a load that failed later are forgotten: the next load reads the file again.
  EXPECT_EQ(load("WEIGHT twice.bin\nKEY 1\nKEY 2\n", "third"), 2);
  std::filesystem::remove(dir().file("twice.bin"));
  EXPECT_EQ(load("WEIGHT twice.bin\n", "fourth"), 2);
  EXPECT_EQ(printed_, "WEIGHT twice.bin\n" + notLoaded("test.ctl", resolved("twice.bin")));
}

TEST_F(Loader, SharedWeightsKeepTheirOwnKeys) {
  ASSERT_EQ(load("WEIGHT voices.bin\n", "plain"), 0);
  ASSERT_EQ(load("WEIGHT voices.bin\nORVEL_SMOOT_COEF_v0_0_1 0.2\n", "smooth"), 0);
  const std::vector<int16_t> input = speechLike(16000, 0.2);
  const auto output = [&](const char* model) {
    return cleanStream(Orv_NC_CreateSession(16000, 16000, 10, model), input, 160, 160);
  };
  const std::vector<int16_t> first = output("plain");
  EXPECT_NE(output("smooth"), first);
  EXPECT_EQ(output("plain"), first);
}

TEST_F(Loader, DirectoriesAndAbsolutePaths) {
  dir().write("deep/down/test.ctl", "WEIGHT voices.bin\n");
  EXPECT_EQ(loadFile("deep\\down/test.ctl", "nested"), 0);

  const std::string directory = dir().path();
  const std::string control = dir().write("absolute.ctl", "WEIGHT " + directory + "/voices.bin\n");
  struct Row {
    const char* directory;
    std::string control;
    int status;
  };
  const std::string slashed = directory + "/", backslashed = directory + "\\";
  const Row rows[] = {{nullptr, control, 0},
                      {"", control, 0},
                      {slashed.c_str(), "deep/down/test.ctl", 0},
                      {backslashed.c_str(), "deep\\down\\test.ctl", 0},
                      {directory.c_str(), control, 2},  // relative unless it has a drive letter
                      {"/no/such/directory", "test.ctl", 2}};
  for (const Row& row : rows) {
    ASSERT_EQ(Orv_SDK_GlobalDestroy(), 0);
    ASSERT_EQ(Orv_SDK_GlobalInit(row.directory), 0);
    EXPECT_EQ(loadFile(row.control.c_str(), "model"), row.status)
        << (row.directory == nullptr ? "null" : row.directory);
  }
}

}  // namespace
}  // namespace orvel_test
