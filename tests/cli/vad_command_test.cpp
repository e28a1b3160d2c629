// `orvel vad`: scores are those of the exports, at the times of the input; the report styles agree.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/cli/program.h"
#include "tests/support/sdk.h"
#include "tools/vad_stream.h"

namespace orvel_test {
namespace {

class Vad : public CliTest {
 protected:
  // One score per 10 ms straight from the exports.
  std::vector<float> exportedScores(const std::vector<float>& samples) {
    Sdk sdk;
    EXPECT_EQ(sdk.load("orvel-vad", makeVadModel()), 0);
    void* session = Orv_VAD_CreateSession(8000, 10, "orvel-vad");
    std::vector<float> scores;
    for (size_t at = 0; at + 80 <= samples.size(); at += 80) {
      float score = -1.0F;
      EXPECT_EQ(Orv_VAD_ProcessFloat(session, samples.data() + at, 80, &score), 0);
      scores.push_back(score);
    }
    return scores;
  }
};

TEST_F(Vad, FramesAreTheExportsScoresMovedByTheLag) {
  const Sound in = speech(8000, 2.005);
  save(dir_.file("in.wav"), in);
  const Result result = run({"vad", "--frames", "--csv", dir_.file("in.wav")});
  ASSERT_EQ(result.code, 0) << result.err;
  EXPECT_EQ(result.err, "");
  std::vector<float> padded = load(dir_.file("in.wav")).samples;
  padded.resize(padded.size() + 40 + 80 * ORVEL::TOOLS::kVadLagHops, 0.0F);
  const std::vector<float> expected = exportedScores(padded);
  std::istringstream lines(result.out);
  std::string line;
  std::getline(lines, line);
  EXPECT_EQ(line, "time,score");
  for (size_t i = 0; i < 201; ++i) {
    ASSERT_TRUE(std::getline(lines, line)) << i;
    double time = -1.0;
    double score = -1.0;
    ASSERT_EQ(std::sscanf(line.c_str(), "%lf,%lf", &time, &score), 2) << line;
    EXPECT_NEAR(time, 0.01 * static_cast<double>(i), 1e-6);
    EXPECT_NEAR(score, static_cast<double>(expected[i + ORVEL::TOOLS::kVadLagHops]), 1e-4) << i;
  }
  EXPECT_FALSE(std::getline(lines, line));
}

TEST_F(Vad, OtherRatesAndChannelsGiveTheTimesOfTheInput) {
  // Silence, then a long sound: the scores' change must stay at the same time at every rate.
  const auto changeAt = [&](int rate, int channels) {
    Sound in = speech(rate, 3.0, channels);
    std::fill(in.samples.begin(), in.samples.begin() + rate * channels, 0.0F);
    save(dir_.file("in.wav"), in);
    const Result result = run({"vad", "--frames", "--json", dir_.file("in.wav")});
    EXPECT_EQ(result.code, 0) << result.err;
    const auto document = nlohmann::json::parse(result.out);
    const auto& frames = document.at("frames");
    EXPECT_EQ(frames.size(), 300U);
    EXPECT_NEAR(document.at("duration").get<double>(), 3.0, 1e-3);
    // The random model's score stands still in silence and starts to move with the sound.
    const double silent = frames.at(80).at("score").get<double>();
    for (size_t i = 80; i < frames.size(); ++i) {
      if (std::abs(frames[i].at("score").get<double>() - silent) > 0.02) return static_cast<int>(i);
    }
    return -1;
  };
  const int reference = changeAt(8000, 1);
  EXPECT_NEAR(reference, 100 - ORVEL::TOOLS::kVadLagHops, 2);
  EXPECT_NEAR(changeAt(44100, 1), reference, 1);
  EXPECT_NEAR(changeAt(48000, 2), reference, 1);
  EXPECT_NEAR(changeAt(11025, 1), reference, 1);
}

TEST_F(Vad, StylesTellTheSameSegments) {
  const Sound in = speech(8000, 4.0);
  save(dir_.file("in.wav"), in);
  const std::vector<std::string> base = {"vad",          "--threshold", "0.4",
                                         "--min-speech", "50",          dir_.file("in.wav")};
  const auto with = [&](const std::string& style) {
    std::vector<std::string> words = base;
    if (!style.empty()) words.push_back(style);
    const Result result = run(words);
    EXPECT_EQ(result.code, 0) << result.err;
    return result.out;
  };
  std::vector<std::array<double, 3>> segments;
  const auto document = nlohmann::json::parse(with("--json"));
  for (const auto& segment : document.at("segments")) {
    segments.push_back({segment.at("start"), segment.at("end"), segment.at("mean_score")});
  }
  ASSERT_GE(segments.size(), 1U) << "the signal has to give segments for the comparison";
  const auto parsed = [](const std::string& text, bool heading) {
    std::vector<std::array<double, 3>> found;
    std::istringstream lines(text);
    std::string line;
    if (heading) std::getline(lines, line);
    while (std::getline(lines, line)) {
      if (const size_t word = line.find("\tspeech "); word != std::string::npos) {
        line.erase(word, 8).insert(word, 1, ' ');
      }
      std::replace(line.begin(), line.end(), ',', ' ');
      std::istringstream numbers(line);
      std::array<double, 3> s{};
      EXPECT_TRUE(numbers >> s[0] >> s[1] >> s[2]) << line;
      found.push_back(s);
    }
    return found;
  };
  EXPECT_EQ(parsed(with(""), false), segments);
  EXPECT_EQ(parsed(with("--csv"), true), segments);
  EXPECT_EQ(parsed(with("--labels"), false), segments);
  // The same sound as a raw stream.
  std::string bytes;
  for (float x : load(dir_.file("in.wav")).samples) {
    bytes.append(reinterpret_cast<const char*>(&x), sizeof x);
  }
  std::vector<std::string> words = base;
  words.back() = "-";
  words.insert(words.end(), {"--rate", "8000", "--format", "f32le"});
  EXPECT_EQ(parsed(run(words, bytes).out, false), segments);
}

TEST_F(Vad, WrongOptionsAndModelsAreRefused) {
  save(dir_.file("in.wav"), speech(8000, 0.2));
  EXPECT_EQ(run({"vad", "--json", "--csv", dir_.file("in.wav")}).code, 2);
  EXPECT_EQ(run({"vad", "--neg-threshold", "0.9", dir_.file("in.wav")}).code, 2);
  EXPECT_EQ(run({"vad", dir_.file("none.wav")}).code, 3);
  const Result wrong = run({"vad", "--model", "orvel-16k", dir_.file("in.wav")});
  EXPECT_EQ(wrong.code, 5);
  EXPECT_NE(wrong.err.find("not for voice activity"), std::string::npos) << wrong.err;
  EXPECT_EQ(wrong.out, "");
}

}  // namespace
}  // namespace orvel_test
