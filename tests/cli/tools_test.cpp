// Parts of the command by themselves: scores to segments, the line of progress, every pair of containers.
#include <gtest/gtest.h>

#include "tests/support/signals.h"
#include "tests/support/temp_dir.h"
#include "tools/audio.h"
#include "tools/console.h"
#include "tools/vad_segments.h"

namespace orvel_test {
namespace {

namespace TOOLS = ORVEL::TOOLS;
using TOOLS::Segment;
using TOOLS::Segmenter;
using TOOLS::SegmentOptions;

struct Scores {
  int frames;
  double score;
};

struct Case {
  const char* name;
  std::vector<Scores> runs;
  SegmentOptions options;
  std::vector<Segment> segments;
};

SegmentOptions options(int speech, int silence, int padding) {
  return {0.5, 0.35, speech, silence, padding};
}

const Case kCases[] = {
    {"defaults end in noise that scores just below them",
     {{50, 0.44}, {60, 0.7}, {50, 0.44}},
     {},
     {{0.48, 1.12, 0.7}}},
    {"no audio", {}, {}, {}},
    {"short speech is dropped", {{20, 0.1}, {14, 0.9}, {30, 0.1}}, {}, {}},
    {"exactly the minimum stays", {{20, 0.1}, {15, 0.9}, {30, 0.1}}, {}, {{0.18, 0.37, 0.9}}},
    {"a short pause is bridged",
     {{30, 0.8}, {9, 0.0}, {30, 0.8}, {20, 0.0}},
     options(250, 100, 0),
     {{0.0, 0.69, (60 * 0.8) / 69}}},
    {"a long pause splits",
     {{30, 0.8}, {10, 0.0}, {30, 0.6}, {20, 0.0}},
     options(250, 100, 0),
     {{0.0, 0.3, 0.8}, {0.4, 0.7, 0.6}}},
    // Between 0.35 and 0.5 speech neither begins nor ends.
    {"hysteresis holds speech",
     {{10, 0.4}, {30, 0.9}, {50, 0.4}, {20, 0.3}},
     options(250, 100, 0),
     {{0.1, 0.9, (30 * 0.9 + 50 * 0.4) / 80}}},
    {"one good score ends a pause",
     {{30, 0.9}, {6, 0.0}, {1, 0.5}, {6, 0.0}, {30, 0.9}, {20, 0.0}},
     options(100, 100, 0),
     {{0.0, 0.73, (60 * 0.9 + 0.5) / 73}}},
    // Two neighbours share the gap; the ends of the audio limit the outer padding.
    {"padding shares short gaps",
     {{30, 0.9}, {20, 0.0}, {30, 0.9}},
     options(250, 100, 500),
     {{0.0, 0.4, 0.9}, {0.4, 0.8, 0.9}}},
    {"dropped speech leaves padding alone",
     {{30, 0.9}, {12, 0.0}, {2, 0.9}, {60, 0.0}},
     options(250, 100, 100),
     {{0.0, 0.4, 0.9}}},
    {"speech up to the end", {{20, 0.1}, {40, 0.7}}, {}, {{0.18, 0.6, 0.7}}},
    {"a pause at the end is not speech", {{40, 0.7}, {5, 0.0}}, {}, {{0.0, 0.42, 0.7}}},
};

TEST(Segmenter, ScoresBecomeSegments) {
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.name);
    std::vector<Segment> found;
    Segmenter segmenter(c.options, [&](const Segment& segment) { found.push_back(segment); });
    int frames = 0;
    for (const Scores& run : c.runs) {
      for (int i = 0; i < run.frames; ++i)
        segmenter.push(run.score);
      frames += run.frames;
    }
    segmenter.finish(frames * 0.01);
    ASSERT_EQ(found.size(), c.segments.size());
    for (size_t i = 0; i < found.size(); ++i) {
      EXPECT_NEAR(found[i].start, c.segments[i].start, 1e-9) << i;
      EXPECT_NEAR(found[i].end, c.segments[i].end, 1e-9) << i;
      EXPECT_NEAR(found[i].meanScore, c.segments[i].meanScore, 1e-9) << i;
    }
  }
}

TEST(Segmenter, GivesASegmentOutAsSoonAsNothingCanChangeIt) {
  int found = 0;
  Segmenter segmenter(options(250, 100, 30), [&](const Segment&) { ++found; });
  for (int i = 0; i < 50; ++i)
    segmenter.push(i < 40 ? 0.9 : 0.0);
  EXPECT_EQ(found, 0);
  segmenter.push(0.0);
  EXPECT_EQ(found, 1);
}

TEST(ProgressText, SaysHowLongItWillTake) {
  using TOOLS::progressText;
  EXPECT_EQ(progressText(30.0, 120.0, 25.0),
            "[#######.......................]  25%  1.2 x real time  1:15 left");
  EXPECT_EQ(progressText(1.0, 7201.0, 1.5),
            "[..............................]   0%  0.7 x real time  3:00:00 left");
  EXPECT_EQ(progressText(9.0, 8.0, 2.0), "[##############################] 100%  4.5 x real time");
  EXPECT_EQ(progressText(3.0, {}, 2.0), "3.0 s  1.5 x real time");
}

// Writes a source whole as a file, as the command does; gives the frames.
size_t copy(const std::string& from, const std::string& to) {
  TOOLS::StreamOptions options;
  options.rate = 16000;
  const auto source = TOOLS::openSource(from, options);
  const auto sink = TOOLS::openSink(to, *source, options, true);
  std::vector<float> block(8192);
  size_t frames = 0;
  while (const size_t got = source->read(block)) {
    sink->write(std::span(block).first(got));
    frames += got;
  }
  EXPECT_EQ(source->shortfall(), "") << from;
  sink->commit();
  return frames;
}

TEST(Containers, EveryPairWorks) {
  const TempDir dir;
  const std::vector<int16_t> sound = speechLike(16000, 0.5);
  dir.write("a.raw", {reinterpret_cast<const char*>(sound.data()), 2 * sound.size()});
  const char* const names[] = {"wav", "flac", "ogg",  "opus", "mp3", "aiff", "au",
                               "caf", "w64",  "rf64", "raw",  "oga", "aifc", "snd"};
  for (const std::string from : names) {
    copy(dir.file("a.raw"), dir.file("in." + from));
    for (const std::string to : names) {
      SCOPED_TRACE(from + " to " + to);
      const size_t frames = copy(dir.file("in." + from), dir.file("out." + to));
      EXPECT_GE(frames, sound.size());
      EXPECT_GE(copy(dir.file("out." + to), dir.file("back.wav")), frames);
    }
  }
}

}  // namespace
}  // namespace orvel_test
