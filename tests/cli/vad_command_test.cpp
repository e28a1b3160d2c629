// `orvel vad`: scores are those of the library, at the times of the input; the report styles agree.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <sstream>

#include "orvel/orvel.hpp"
#include "tests/cli/program.h"

namespace orvel_test {
namespace {

class Vad : public CliTest {};

constexpr size_t kLagHops = orvel::Detector::kLagMs / 10;

// One score per 10 ms straight from a detector.
std::vector<float> plainScores(const std::vector<float>& samples) {
  orvel::Library library;
  const std::string bytes = makeVadModel().weights().bytes();
  library.loadModelFromMemory({}, std::as_bytes(std::span(bytes)), "voice");
  orvel::Detector detector(library, {.rate = 8000, .model = "voice"});
  std::vector<float> scores;
  for (size_t at = 0; at + 80 <= samples.size(); at += 80) {
    scores.push_back(detector.process(std::span(samples).subspan(at, 80)));
  }
  return scores;
}

TEST_F(Vad, FramesAreTheLibrarysScoresMovedByTheLag) {
  save(dir_.file("in.wav"), speech(8000, 2.005));
  const Result result = run({"vad", "--frames", "--csv", dir_.file("in.wav")});
  ASSERT_EQ(result.code, 0) << result.err;
  EXPECT_EQ(result.err, "");
  std::vector<float> padded = load(dir_.file("in.wav")).samples;
  padded.resize(padded.size() + 40 + 80 * kLagHops, 0.0F);
  const std::vector<float> expected = plainScores(padded);
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
    EXPECT_NEAR(score, static_cast<double>(expected[i + kLagHops]), 1e-4) << i;
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
      if (std::abs(frames[i].at("score").get<double>() - silent) > 0.02) {
        return static_cast<int>(i);
      }
    }
    return -1;
  };
  const int reference = changeAt(8000, 1);
  EXPECT_NEAR(reference, 100 - static_cast<int>(kLagHops), 2);
  EXPECT_NEAR(changeAt(44100, 1), reference, 1);
  EXPECT_NEAR(changeAt(48000, 2), reference, 1);
  EXPECT_NEAR(changeAt(11025, 1), reference, 1);
}

using Segments = std::vector<std::array<double, 3>>;

// Start, end and score of the lines.
Segments parsed(std::string text, bool heading) {
  std::replace(text.begin(), text.end(), ',', ' ');
  Segments found;
  std::istringstream lines(text);
  std::string line;
  if (heading) {
    std::getline(lines, line);
  }
  while (std::getline(lines, line)) {
    if (const size_t word = line.find("\tspeech "); word != std::string::npos) {
      line.erase(word, 8).insert(word, 1, ' ');
    }
    std::istringstream words(line);
    std::array<double, 3> s{};
    EXPECT_TRUE(words >> s[0] >> s[1] >> s[2]) << line;
    found.push_back(s);
  }
  return found;
}

TEST_F(Vad, StylesTellTheSameSegments) {
  save(dir_.file("in.wav"), speech(8000, 4.0));
  const std::vector<std::string> base = {"vad", "--threshold",  "0.4", "--neg-threshold",
                                         "0.3", "--min-speech", "50",  dir_.file("in.wav")};
  const auto with = [&](const std::string& style) {
    std::vector<std::string> words = base;
    words.push_back(style);
    const Result result = run(words);
    EXPECT_EQ(result.code, 0) << result.err;
    return result.out;
  };
  Segments segments;
  const auto document = nlohmann::json::parse(with("--json"));
  for (const auto& segment : document.at("segments")) {
    segments.push_back({segment.at("start"), segment.at("end"), segment.at("mean_score")});
  }
  ASSERT_GE(segments.size(), 1U) << "the signal has to give segments for the comparison";
  EXPECT_EQ(parsed(with("-q"), false), segments);
  EXPECT_EQ(parsed(with("--csv"), true), segments);
  EXPECT_EQ(parsed(with("--labels"), false), segments);
  std::istringstream rttm(with("--rttm"));
  for (const auto& [start, end, score] : segments) {
    std::array<std::string, 10> field;
    for (std::string& text : field) {
      rttm >> text;
    }
    EXPECT_EQ(field[0] + field[1] + field[2] + field[5] + field[7], "SPEAKERin1<NA>speech");
    EXPECT_NEAR(std::stod(field[3]), start, 1e-9);
    EXPECT_NEAR(std::stod(field[4]), end - start, 1e-9);
  }
  // The same sound on a pipe.
  std::string bytes;
  for (float x : load(dir_.file("in.wav")).samples) {
    bytes.append(reinterpret_cast<const char*>(&x), sizeof x);
  }
  std::vector<std::string> words = base;
  words.back() = "-";
  words.insert(words.end(), {"--rate", "8000", "--format", "f32le"});
  EXPECT_EQ(parsed(run(words, bytes).out, false), segments);
}

TEST_F(Vad, ManyInputsComeInTheirOrderWithTheirNames) {
  std::vector<std::string> names;
  std::vector<std::string> words = {"vad", "--jobs",          "3",  "--threshold",
                                    "0.4", "--neg-threshold", "0.3"};
  std::string text;
  for (const double seconds : {8.0, 2.0, 0.5, 3.0}) {
    names.push_back(dir_.file("take, " + std::to_string(names.size()) + ".wav"));
    save(names.back(), speech(8000, seconds));
    words.push_back(names.back());
    std::istringstream lines(
        run({"vad", "--threshold", "0.4", "--neg-threshold", "0.3", names.back()}).out);
    for (std::string line; std::getline(lines, line);) {
      text += names.back() + "  " + line + "\n";
    }
  }
  ASSERT_NE(text, "");
  EXPECT_EQ(run(words).out, text);

  words.push_back(dir_.file("none.wav"));
  words.push_back("--json");
  const Result json = run(words);
  EXPECT_EQ(json.code, 6);
  EXPECT_NE(json.err.find("none.wav: cannot open"), std::string::npos) << json.err;
  const auto list = nlohmann::json::parse(json.out);
  ASSERT_EQ(list.size(), names.size());
  for (size_t i = 0; i < names.size(); ++i) {
    EXPECT_EQ(list[i].at("input"), names[i]);
  }
  words.back() = "--csv";
  const std::string csv = run(words).out;
  EXPECT_EQ(csv.substr(0, csv.find('\n')), "file,start,end,mean_score");
  EXPECT_NE(csv.find("\n\"" + names[0] + "\","), std::string::npos) << csv;
  words.back() = "--rttm";
  EXPECT_EQ(run(words).out.substr(0, 18), "SPEAKER take,_0 1 ");
  words.back() = "--labels";
  EXPECT_EQ(run(words).code, 2);
}

TEST_F(Vad, NothingToReportIsStillADocument) {
  for (const auto& [option, text] : std::vector<std::pair<std::string, std::string>>{
           {"--csv", "file,start,end,mean_score\n"}, {"--json", "[\n]\n"}, {"--rttm", ""}}) {
    const Result result = run({"vad", option, dir_.file("none"), dir_.file("nil")});
    EXPECT_EQ(result.code, 6);
    EXPECT_EQ(result.out, text);
  }
}

TEST_F(Vad, WrongOptionsAndModelsAreRefused) {
  save(dir_.file("in.wav"), speech(8000, 0.2));
  const std::string in = dir_.file("in.wav");
  struct {
    std::vector<std::string> words;
    int code;
    const char* reason;
  } const cases[] = {
      {{"vad", "--json", "--csv", in}, 2, "--csv"},
      {{"vad", "--frames", "--rttm", in}, 2, "--rttm"},
      {{"vad", "--threshold", "nan", in}, 2, "'nan' is not a number from 0 to 1"},
      {{"vad", "--threshold", "5", in}, 2, "'5' is not a number from 0 to 1"},
      {{"vad", "--neg-threshold", "-0.1", in}, 2, "is not a number from 0 to 1"},
      {{"vad", "--neg-threshold", "0.9", in}, 2, "must not be above"},
      {{"vad", dir_.file("none.wav")}, 3, "cannot open"},
      {{"vad", "--model", "orvel-16k", in}, 5, "not for voice activity"},
  };
  for (const auto& c : cases) {
    const Result result = run(c.words);
    EXPECT_EQ(result.code, c.code) << result.err;
    EXPECT_NE(result.err.find(c.reason), std::string::npos) << result.err;
    EXPECT_EQ(result.out, "");
  }
  dir_.write("cut.wav", slurp(in).substr(0, 2000));
  const Result cut = run({"vad", dir_.file("cut.wav")});
  EXPECT_EQ(cut.code, 3);
  EXPECT_NE(cut.err.find("cut short"), std::string::npos) << cut.err;
}

}  // namespace
}  // namespace orvel_test
