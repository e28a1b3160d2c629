// Weight files that lie: truncated, with huge counts, of any bytes. Reads the library's internals,
// because the exports do not tell which records were kept.
#include <gtest/gtest.h>

#include <optional>

#include "containers/matrix.h"
#include "tests/support/capture.h"
#include "tests/support/temp_dir.h"
#include "tests/support/weight_builder.h"
#include "weights/weight.h"

namespace orvel_test {
namespace {

using ORVEL::CONTAINERS::Matrix;
using ORVEL::WEIGHTS::Weight;

// One record of every type, an unknown type among them.
WeightBuilder everyType() {
  WeightBuilder weights;
  weights.integer("", -1).real("Real", 1.5F).text("Text", "").text("Version", "0.0.1");
  weights.floats("None", {}).floats("Floats", {1.0F, 2.0F});
  weights.matrix("Flat", {0, 7, {}}).matrix("Matrix", {2, 3, {1, 2, 3, 4, 5, 6}});
  weights.lists("NoLists", {}).lists("Lists", {{1.0F}, {}, {2.0F, 3.0F}});
  weights.raw("Unknown", 9, "").matrices("Matrices", {{1, 2, {1, 2}}, {1, 0, {}}});
  return weights;
}

class WeightFile : public testing::Test {
 protected:
  bool load(const std::string& bytes) {
    dir_.write("weights.bin", bytes);
    return weight_.emplace().load(dir_.file("weights.bin").c_str());
  }
  Weight& weight() { return *weight_; }
  TempDir dir_;
  std::optional<Weight> weight_;
};

TEST_F(WeightFile, KeepsEveryTypeExactly) {
  ASSERT_TRUE(load(everyType().bytes() + WeightBuilder().floats("Floats", {3.0F}).bytes()));
  EXPECT_EQ(weight().error(), "");
  const auto& values = weight().values();
  EXPECT_EQ(values.size(), 11U);
  EXPECT_EQ(values.getReference<int>(""), -1);
  EXPECT_EQ(values.getReference<float>("Real"), 1.5F);
  EXPECT_EQ(values.getReference<Floats>("Floats"), (Floats{1.0F, 2.0F})) << "the first of a name";
  EXPECT_EQ(values.getReference<Matrix>("Flat").dim1, 7U);
  EXPECT_EQ(values.getReference<Matrix>("Matrix").data, (Floats{1, 2, 3, 4, 5, 6}));
  EXPECT_TRUE(values.getReference<std::vector<Floats>>("NoLists").empty());
  EXPECT_EQ(values.getReference<std::vector<Matrix>>("Matrices")[1].dim0, 1U);
  EXPECT_EQ(values.get<float>(""), nullptr) << "an int is never given out as a float";
}

TEST_F(WeightFile, TruncatedAtEveryByte) {
  const WeightBuilder weights = everyType();
  const std::string bytes = weights.bytes();
  const std::vector<WeightBuilder::Span> spans = weights.spans();
  for (size_t cut = 0; cut <= bytes.size(); ++cut) {
    SCOPED_TRACE(cut);
    size_t whole = 0;  // records stored: those that end before the cut, but for the unknown one
    bool insideName = false;
    for (size_t i = 0; i < spans.size(); ++i) {
      const bool unknown = i == 10;
      if (spans[i].end <= cut && !unknown) ++whole;
      insideName |= spans[i].begin < cut && cut < spans[i].type;
    }
    Capture capture;
    EXPECT_EQ(load(bytes.substr(0, cut)), !insideName);
    EXPECT_EQ(weight().error(), insideName ? "Corrupted weight file!" : "");
    EXPECT_EQ(weight().values().size(), insideName ? 0 : whole);
    const bool nothing = !insideName && whole == 0;
    EXPECT_EQ(capture.out(), nothing ? "Warning Nothing added from weight\n" : "");
  }
}

// What huge counts cost in memory, safety/hostile_files_test.cpp measures.
TEST_F(WeightFile, RecordsOfHugeCountsAreDropped) {
  const std::string huge = u32Bytes(0xFFFFFFFFU), some(64, '\x01');
  const std::pair<uint32_t, std::string> records[] = {
      {2, huge + some},
      {3, u32Bytes(17) + some},                           // of 16 floats
      {4, u32Bytes(0x10000) + u32Bytes(0x10000) + some},  // the product wraps to 0
      {4, u32Bytes(0x40000001) + u32Bytes(4) + some},     // and to 4
      {5, u32Bytes(2) + huge + some},
      {6, u32Bytes(1) + huge + huge + some}};
  for (const auto& [type, payload] : records) {
    Capture capture;
    EXPECT_TRUE(load(WeightBuilder().integer("Kept", 1).raw("Huge", type, payload).bytes()));
    EXPECT_EQ(weight().values().size(), 1U) << type;
  }
  EXPECT_FALSE(load(huge + some)) << "a name that is longer than the file";
}

}  // namespace
}  // namespace orvel_test
