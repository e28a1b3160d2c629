// The table of tuning keys: what is read, checked and printed, against the plain reference. What it says to
// users, cli/test_info.py shows.
#include "noise_canceller/tuning_key_table.h"

#include "tests/reference/settings.h"
#include "tests/support/sdk.h"
#include "tests/support/versions.h"

namespace orvel_test {
namespace {

using ORVEL::NOISE_CANCELLER::findTuningKey;
using ORVEL::NOISE_CANCELLER::fullName;
using ORVEL::NOISE_CANCELLER::Key;
using ORVEL::NOISE_CANCELLER::KeyKind;
using ORVEL::NOISE_CANCELLER::TuningKey;
using ORVEL::NOISE_CANCELLER::tuningKeys;

// Every number of every version at values around all bounds, with all switches on and off.
TEST(TuningKeys, NumbersOutOfRangeAreWarnedOfInOrder) {
  for (const CleanerTraits* version : noiseCleaners()) {
    const TestModel model = makeModel({.version = version->version});
    Sdk sdk;
    size_t warned = 0;
    for (const bool on : {true, false}) {
      for (const char* value : {"-1", "0", "1e-9", "0.9", "1", "1.1", "199.9", "200", "1000",
                                "1000.5", "1001", "32768", "32769", "nan", "x"}) {
        Keys keys;
        for (const TuningKey& key : tuningKeys()) {
          if (!key.isReadBy(*version) || key.kind == KeyKind::kWhole) continue;
          const bool isSwitch = key.kind == KeyKind::kSwitch && key.key != Key::kClipFix;
          if (key.kind == KeyKind::kReal || key.kind == KeyKind::kNumber || isSwitch) {
            keys[fullName(key, *version)] = !isSwitch ? value : on ? "TRUE" : "FALSE";
          }
        }
        const std::string name = std::string(value) + (on ? " on" : " off");
        ASSERT_EQ(sdk.load(name, model, keys), 0);
        Capture capture;
        ASSERT_NE(Orv_NC_CreateSession(16000, 16000, 10, name.c_str()), nullptr);
        const std::string expected = Settings(model.generation(), keys).printed;
        EXPECT_EQ(capture.out(), expected) << version->version << ' ' << name;
        warned += expected.empty() ? 0 : 1;
      }
    }
    EXPECT_GT(warned, 10U);
  }
}

TEST(TuningKeys, AreFoundByTheirFullNamesOnly) {
  EXPECT_EQ(findTuningKey("ORVEL_SMOOT_COEF_v0_0_3")->stem, std::string("ORVEL_SMOOT_COEF"));
  for (const char* name : {"ORVEL_SMOOT_COEF", "ORVEL_SMOOT_COEF_v0_0_9", "ORVEL_VOLUME_UP_v0_0_1",
                           "ORVEL_COMPRESS_RATE_v0_0_4", ""}) {
    EXPECT_EQ(findTuningKey(name), nullptr) << name;
  }
}

}  // namespace
}  // namespace orvel_test
