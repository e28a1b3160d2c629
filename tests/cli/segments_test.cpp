// Scores to segments: each rule in a table of its own row.
#include "tools/vad_segments.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace orvel_test {
namespace {

using ORVEL::TOOLS::Segment;
using ORVEL::TOOLS::Segmenter;
using ORVEL::TOOLS::SegmentOptions;

struct Scores {
  int frames;
  double score;
};

struct Expected {
  double start, end, mean;
};

struct Case {
  std::string name;
  std::vector<Scores> runs;
  SegmentOptions options;
  std::vector<Expected> segments;
};

SegmentOptions options(int speech, int silence, int padding) {
  return {0.5, 0.35, speech, silence, padding};
}

const std::vector<Case> kCases = {
    // Plain noise has scores up to 0.45: speech ends there.
    {"DefaultsEndInSteadyNoise", {{50, 0.44}, {60, 0.7}, {50, 0.44}}, {}, {{0.48, 1.12, 0.7}}},
    {"NoAudio", {}, {}, {}},
    {"ShortSpeechIsDropped", {{20, 0.1}, {14, 0.9}, {30, 0.1}}, {}, {}},
    {"SpeechOfExactlyTheMinimumStays", {{20, 0.1}, {15, 0.9}, {30, 0.1}}, {}, {{0.18, 0.37, 0.9}}},
    {"ShortPauseIsBridged",
     {{30, 0.8}, {9, 0.0}, {30, 0.8}, {20, 0.0}},
     options(250, 100, 0),
     {{0.0, 0.69, (60 * 0.8) / 69}}},
    {"LongPauseSplits",
     {{30, 0.8}, {10, 0.0}, {30, 0.6}, {20, 0.0}},
     options(250, 100, 0),
     {{0.0, 0.3, 0.8}, {0.4, 0.7, 0.6}}},
    // Between 0.35 and 0.5 speech neither begins nor ends.
    {"HysteresisHoldsSpeech",
     {{10, 0.4}, {30, 0.9}, {50, 0.4}, {20, 0.3}},
     options(250, 100, 0),
     {{0.1, 0.9, (30 * 0.9 + 50 * 0.4) / 80}}},
    {"OneGoodScoreEndsAPause",
     {{30, 0.9}, {6, 0.0}, {1, 0.5}, {6, 0.0}, {30, 0.9}, {20, 0.0}},
     options(100, 100, 0),
     {{0.0, 0.73, (60 * 0.9 + 0.5) / 73}}},
    // Two neighbours share the gap; the ends of the audio limit the outer padding.
    {"PaddingSharesShortGaps",
     {{30, 0.9}, {20, 0.0}, {30, 0.9}},
     options(250, 100, 500),
     {{0.0, 0.4, 0.9}, {0.4, 0.8, 0.9}}},
    {"DroppedSpeechLeavesPaddingAlone",
     {{30, 0.9}, {12, 0.0}, {2, 0.9}, {60, 0.0}},
     options(250, 100, 100),
     {{0.0, 0.4, 0.9}}},
    {"SpeechUpToTheEnd", {{20, 0.1}, {40, 0.7}}, {}, {{0.18, 0.6, 0.7}}},
    {"PauseAtTheEndIsNotSpeech", {{40, 0.7}, {5, 0.0}}, {}, {{0.0, 0.42, 0.7}}},
};

class Segments : public ::testing::TestWithParam<Case> {};

TEST_P(Segments, AsExpected) {
  const Case& c = GetParam();
  std::vector<Segment> found;
  Segmenter segmenter(c.options, [&](const Segment& segment) { found.push_back(segment); });
  int frames = 0;
  for (const Scores& run : c.runs) {
    for (int i = 0; i < run.frames; ++i) {
      segmenter.push(run.score);
    }
    frames += run.frames;
  }
  segmenter.finish(frames * 0.01);
  ASSERT_EQ(found.size(), c.segments.size());
  for (size_t i = 0; i < found.size(); ++i) {
    EXPECT_NEAR(found[i].start, c.segments[i].start, 1e-9) << i;
    EXPECT_NEAR(found[i].end, c.segments[i].end, 1e-9) << i;
    EXPECT_NEAR(found[i].meanScore, c.segments[i].mean, 1e-9) << i;
  }
}

INSTANTIATE_TEST_SUITE_P(All, Segments, ::testing::ValuesIn(kCases),
                         [](const auto& tested) { return tested.param.name; });

TEST(Segmenter, GivesASegmentOutAsSoonAsNothingCanChangeIt) {
  int found = 0;
  Segmenter segmenter(options(250, 100, 30), [&](const Segment&) { ++found; });
  for (int i = 0; i < 40; ++i) {
    segmenter.push(0.9);
  }
  for (int i = 0; i < 10; ++i) {
    segmenter.push(0.0);
  }
  EXPECT_EQ(found, 0);
  segmenter.push(0.0);
  EXPECT_EQ(found, 1);
}

}  // namespace
}  // namespace orvel_test
