// The detector's switch for clearing its state: by its rule, which counts down once the record is full, it is
// never due.
#include <gtest/gtest.h>

#include "noise_canceller/vad_cleaner_v0_0_1.h"

namespace orvel_test {
namespace {

using ORVEL::NOISE_CANCELLER::StateReset;

int timesDue(StateReset& reset, float rawOutput, int hops) {
  int due = 0;
  for (int i = 0; i < hops; ++i)
    due += reset.update(rawOutput) ? 1 : 0;
  return due;
}

constexpr float kVoice = 5.0F;
constexpr float kPause = -5.0F;

TEST(StateReset, IsNeverDue) {
  // The most that the count can be at the first hop that may reset: a full record, then voice.
  StateReset longPause, voiceAfterwards, cleared;
  EXPECT_EQ(timesDue(longPause, kPause, 2000), 0);
  EXPECT_EQ(timesDue(voiceAfterwards, kPause, 200), 0);
  EXPECT_EQ(timesDue(voiceAfterwards, kVoice, 2000), 0);
  // What was counted before a stream's reset does not count after it.
  timesDue(cleared, kPause, 200);
  cleared.clear();
  EXPECT_EQ(timesDue(cleared, kPause, 2000), 0);
}

}  // namespace
}  // namespace orvel_test
