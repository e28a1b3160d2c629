// The built plugins as a host drives them, with the shipped models.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <random>

#include "tests/plugins/plugin_host.h"
#include "tests/safety/guard.h"
#include "tests/support/capture.h"
#include "tests/support/library.h"
#include "tests/support/signals.h"

namespace orvel_test {
namespace {

double powerOf(const std::vector<float>& signal, std::size_t from, std::size_t to) {
  double sum = 0.0;
  for (std::size_t i = from; i < to; ++i)
    sum += static_cast<double>(signal[i]) * static_cast<double>(signal[i]);
  return sum / static_cast<double>(to - from);
}

std::vector<float> scaled(std::vector<float> signal, float factor) {
  for (float& sample : signal)
    sample *= factor;
  return signal;
}

std::vector<float> delayed(const std::vector<float>& signal, std::size_t by) {
  std::vector<float> result(signal.size(), 0.0F);
  std::copy(signal.begin(), signal.end() - static_cast<std::ptrdiff_t>(by),
            result.begin() + static_cast<std::ptrdiff_t>(by));
  return result;
}

class PluginRates : public testing::TestWithParam<PluginOptions> {};

// What may pass comes whole, when the plugin said it would, whatever the blocks; after activate() anew.
TEST_P(PluginRates, DelayIsWhatIsToldAndBlocksDoNotMatter) {
  const auto rate = static_cast<int>(GetParam().rate);
  Plugin plugin(GetParam());
  ASSERT_TRUE(plugin.works());
  const std::size_t latency = plugin.latency();
  EXPECT_LT(static_cast<double>(latency) / rate, 0.07);

  plugin.set(Plugin::kLimit, 0.0F);
  const std::vector<float> sound = pulse(rate, 0.4, rate / 10);
  const Channels pulses = plugin.process(Channels(GetParam().channels, sound));
  for (const std::vector<float>& out : pulses) {
    EXPECT_NEAR(centreOf(out), centreOf(sound) + static_cast<double>(latency), 1.0);
    EXPECT_NEAR(std::sqrt(powerOf(out, 0, out.size()) / powerOf(sound, 0, sound.size())), 1.0,
                0.05);
  }

  plugin.set(Plugin::kLimit, 100.0F);
  plugin.activate();
  Channels speech;
  for (unsigned c = 0; c < GetParam().channels; ++c)
    speech.push_back(toFloat(speechLike(rate, 0.5, c + 1)));
  const Channels whole = plugin.process(speech, {speech[0].size()});
  plugin.activate();
  EXPECT_EQ(plugin.process(speech, {1, 37, 0, 64, 1000, 441}), whole);
}

std::vector<PluginOptions> rates() {
  std::vector<PluginOptions> all;
  for (const unsigned long rate :
       {8000, 11025, 16000, 22050, 32000, 37800, 44100, 48000, 64000, 96000, 176400, 192000})
    for (const std::size_t channels : {1, 2})
      all.push_back({false, rate, channels});
  all.push_back({true, 48000, 1});
  all.push_back({true, 192000, 2});
  return all;
}
INSTANTIATE_TEST_SUITE_P(Hosts, PluginRates, testing::ValuesIn(rates()), [](const auto& test) {
  const PluginOptions& options = test.param;
  return std::string(options.lv2 ? "Lv2" : "Ladspa") + "_" + std::to_string(options.rate) + "_" +
         std::to_string(options.channels);
});

TEST(Plugin, RefusesOtherRates) {
  for (const bool lv2 : {false, true}) {
    for (const unsigned long rate : {0UL, 7999UL, 192001UL}) {
      Capture capture;
      EXPECT_FALSE(Plugin({lv2, rate, 1}).works());
      EXPECT_NE(capture.err().find("expected 8000 to 192000"), std::string::npos) << rate;
    }
  }
}

// A source keeps its place between the sides wherever it is, out of phase included, while the noise
// beside it goes; both sides alike give what one channel gives but for the link's short frames.
TEST(Plugin, LinkedStereoKeepsTheImage) {
  const std::vector<float> sound = toFloat(speechLike(48000, 2.0));
  Plugin mono({false, 48000, 1});
  const std::vector<float> single = mono.process({sound})[0];
  struct Place {
    float left, right;
  };
  for (const Place place : {Place{1.0F, 1.0F}, {1.0F, -1.0F}, {1.0F, 0.3F}, {0.1F, -0.8F}}) {
    SCOPED_TRACE(testing::Message() << place.left << " " << place.right);
    Plugin stereo({false, 48000, 2});
    const Channels out = stereo.process({scaled(sound, place.left), scaled(sound, place.right)});
    double apart = 0.0;
    for (std::size_t i = 0; i < sound.size(); ++i)
      apart = std::max<double>(apart, std::abs(out[0][i] * place.right - out[1][i] * place.left));
    EXPECT_LT(apart, 1e-6);
    const float loud = std::max(std::abs(place.left), std::abs(place.right));
    if (loud < 1.0F) continue;
    const std::size_t later = stereo.latency() - mono.latency();
    std::vector<float> difference = delayed(single, later);
    for (std::size_t i = 0; i < difference.size(); ++i)
      difference[i] -= out[0][i];
    EXPECT_LT(powerOf(difference, 48000, 90000), 0.05 * powerOf(single, 48000, 90000));
  }
  // Two sources at two places do not push each other about: what is only left stays only left.
  Plugin stereo({false, 48000, 2});
  const Channels out = stereo.process({sound, std::vector<float>(sound.size(), 0.0F)});
  EXPECT_GT(powerOf(out[0], 0, sound.size()), 0.0);
  EXPECT_EQ(powerOf(out[1], 0, sound.size()), 0.0);
}

// Bypassed, the input comes exactly and with the same delay; there and back no step is larger than those
// of the sounds themselves.
TEST(Plugin, BypassFadesToTheDelayedInput) {
  for (const std::size_t channels : {1, 2}) {
    for (const bool lv2 : {false, true}) {
      Plugin plugin({lv2, 48000, channels});
      std::vector<float> tone(96000);
      for (std::size_t i = 0; i < tone.size(); ++i)
        tone[i] = 0.5F *
                  std::sin(static_cast<float>(i % 480) * 2.0F * std::numbers::pi_v<float> / 480.0F);
      constexpr std::size_t kOff = 24000, kOn = 72000;
      const Channels out = plugin.process(Channels(channels, tone), {100}, [&](std::size_t at) {
        plugin.bypass(at >= kOff && at < kOn);
      });
      const std::vector<float> late = delayed(tone, plugin.latency());
      for (const std::vector<float>& channel : out) {
        for (std::size_t i = kOff + 1000; i < kOn; ++i)
          ASSERT_EQ(channel[i], late[i]) << i;
        EXPECT_NE(channel[kOn + 5000], late[kOn + 5000]);
        float step = 0.0F;
        for (std::size_t i = kOff - 1000; i < kOn + 2000; ++i)
          step = std::max(step, std::abs(channel[i] - channel[i - 1]));
        // 100 Hz rises by 0.0065 a sample; a fade over 960 samples adds 1/960 of what lies between.
        EXPECT_LT(step, 0.0085F);
      }
    }
  }
}

// Every control in motion, wild values and samples, blocks of any length, both formats and channel counts in
// one program: nothing forbidden, and nothing but numbers comes out of the cleaner.
TEST(PluginRealTime, RunDoesNothingForbidden) {
  for (const PluginOptions& options : rates()) {
    if (options.rate != 48000 && options.rate != 22050 && options.rate != 192000) continue;
    SCOPED_TRACE(testing::Message() << options.rate << " " << options.channels);
    Plugin plugin(options);
    Channels in(options.channels, toFloat(speechLike(static_cast<int>(options.rate), 0.6)));
    std::mt19937 random(7);
    for (std::size_t i = 0; i < in[0].size() / 4; ++i)
      in[0][i] = i % 3 == 0 ? std::numeric_limits<float>::quiet_NaN() : 1e30F;
    Channels out = in;
    bool numbers = true;
    Misdeeds misdeeds;
    std::vector<float*> from(options.channels), to(options.channels);
    const bool watched = onWatchedThread([&] {
      misdeeds = misdeedsOf([&] {
        for (std::size_t at = 0; at < in[0].size();) {
          const std::size_t count = std::min<std::size_t>(random() % 1500, in[0].size() - at);
          constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
          constexpr float kValues[] = {0.0F, 1.0F, 0.5F, 12.0F, 200.0F, -3.0F, kNan};
          for (const auto control : {Plugin::kLimit, Plugin::kThreshold, Plugin::kHold})
            plugin.set(control, kValues[random() % std::size(kValues)]);
          plugin.set(Plugin::kGate, random() % 4 == 0 ? 0.0F : 1.0F);
          for (std::size_t c = 0; c < in.size(); ++c) {
            from[c] = in[c].data() + at;
            to[c] = out[c].data() + at;
          }
          plugin.run(from, to, count);
          for (std::size_t c = 0; c < in.size(); ++c)
            for (std::size_t i = at; i < at + count; ++i)
              numbers &= std::abs(out[c][i]) <= 4.0F;
          at += count;
        }
      });
    });
    ASSERT_TRUE(watched) << "no system-call filter (seccomp) on this machine";
    EXPECT_TRUE(misdeeds.none()) << misdeeds;
    EXPECT_TRUE(numbers);
  }
}

}  // namespace
}  // namespace orvel_test
