// Containers, encodings, and what is kept of a file besides its sound; damaged files.
#include <sys/stat.h>

#include <fstream>
#include <iterator>
#include <limits>
#include <utility>

#include "tests/cli/program.h"
#include "tests/support/signals.h"

namespace orvel_test {
namespace {

struct Case {
  const char* name;
  int inFormat;
  const char* outName;
  int outFormat;
};

class CleanFormats : public CliTest, public ::testing::WithParamInterface<Case> {};

TEST_P(CleanFormats, EncodingIsKeptWhereTheContainerHoldsIt) {
  const Case& c = GetParam();
  const Sound in = speech(16000, 0.5, 2, c.inFormat);
  save(dir_.file("in"), in);
  const Result result = run({"clean", dir_.file("in"), dir_.file(c.outName)});
  ASSERT_EQ(result.code, 0) << result.err;
  const Sound out = load(dir_.file(c.outName));
  EXPECT_EQ(out.format, c.outFormat) << std::hex << out.format;
  EXPECT_EQ(out.samples.size(), in.samples.size());
  EXPECT_EQ(bestLag(channel(in, 0), channel(out, 0)), 0);
}

constexpr int kWav = SF_FORMAT_WAV;
INSTANTIATE_TEST_SUITE_P(
    All, CleanFormats,
    ::testing::Values(
        Case{"wav16", kWav | SF_FORMAT_PCM_16, "o.wav", kWav | SF_FORMAT_PCM_16},
        Case{"wav24", kWav | SF_FORMAT_PCM_24, "o.wav", kWav | SF_FORMAT_PCM_24},
        Case{"wav32", kWav | SF_FORMAT_PCM_32, "o.wav", kWav | SF_FORMAT_PCM_32},
        Case{"wav8", kWav | SF_FORMAT_PCM_U8, "o.wav", kWav | SF_FORMAT_PCM_U8},
        Case{"wavFloat", kWav | SF_FORMAT_FLOAT, "o.wav", kWav | SF_FORMAT_FLOAT},
        Case{"wavLaw", kWav | SF_FORMAT_ULAW, "o.wav", kWav | SF_FORMAT_ULAW},
        Case{"sameWithoutExtension", SF_FORMAT_FLAC | SF_FORMAT_PCM_24, "o",
             SF_FORMAT_FLAC | SF_FORMAT_PCM_24},
        Case{"wav24ToFlac", kWav | SF_FORMAT_PCM_24, "o.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_24},
        Case{"wav8ToFlac", kWav | SF_FORMAT_PCM_U8, "o.FLAC", SF_FORMAT_FLAC | SF_FORMAT_PCM_S8},
        Case{"wavFloatToFlac", kWav | SF_FORMAT_FLOAT, "o.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_24},
        Case{"oggToWav", SF_FORMAT_OGG | SF_FORMAT_VORBIS, "o.wav", kWav | SF_FORMAT_PCM_16},
        Case{"wavToOgg", kWav | SF_FORMAT_PCM_16, "o.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS},
        Case{"wavToOpus", kWav | SF_FORMAT_PCM_16, "o.opus", SF_FORMAT_OGG | SF_FORMAT_OPUS},
        Case{"aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_24, "o.aiff",
             SF_FORMAT_AIFF | SF_FORMAT_PCM_24}),
    [](const auto& tested) { return tested.param.name; });

class CleanFiles : public CliTest {};

TEST_F(CleanFiles, FineEncodingsKeepTheirResolution) {
  // A sound 20 dB below a 16-bit step survives in 24 bits.
  Sound in = speech(16000, 0.5, 1, SF_FORMAT_WAV | SF_FORMAT_PCM_24);
  for (float& x : in.samples)
    x *= 0x1p-17F;
  save(dir_.file("in.wav"), in);
  ASSERT_EQ(run({"clean", dir_.file("in.wav"), dir_.file("out.wav")}).code, 0);
  EXPECT_GT(snrDb(load(dir_.file("in.wav")).samples, load(dir_.file("out.wav")).samples), 20.0);
}

TEST_F(CleanFiles, TitlesGoAlong) {
  save(dir_.file("in.flac"), speech(16000, 0.2, 1, SF_FORMAT_FLAC | SF_FORMAT_PCM_16));
  SF_INFO info{16000 * 0, 16000, 1, SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 0, 0};
  SNDFILE* file = sf_open(dir_.file("in.flac").c_str(), SFM_WRITE, &info);
  ASSERT_NE(file, nullptr);
  sf_set_string(file, SF_STR_TITLE, "a title");
  const std::vector<float> samples(1600, 0.1F);
  sf_write_float(file, samples.data(), 1600);
  sf_close(file);
  ASSERT_EQ(run({"clean", dir_.file("in.flac"), dir_.file("out.flac")}).code, 0);
  info = {};
  file = sf_open(dir_.file("out.flac").c_str(), SFM_READ, &info);
  ASSERT_NE(file, nullptr);
  EXPECT_STREQ(sf_get_string(file, SF_STR_TITLE), "a title");
  sf_close(file);
}

TEST_F(CleanFiles, SamplesThatAreNoNumbersAndOverloadsStayFinite) {
  for (const int rate : {16000, 22050}) {
    Sound in = speech(rate, 0.5, 1, SF_FORMAT_WAV | SF_FORMAT_FLOAT);
    in.samples[1000] = std::numeric_limits<float>::quiet_NaN();
    in.samples[2000] = std::numeric_limits<float>::infinity();
    in.samples[3000] = -3e38F;
    save(dir_.file("in.wav"), in);
    ASSERT_EQ(run({"clean", "-f", dir_.file("in.wav"), dir_.file("out.wav")}).code, 0);
    const Sound out = load(dir_.file("out.wav"));
    ASSERT_EQ(out.samples.size(), in.samples.size());
    for (float x : out.samples)
      ASSERT_TRUE(x >= -4.0F && x <= 4.0F);  // false for NaN too
  }
}

TEST_F(CleanFiles, DamagedFilesAreRefusedOrReadAsFarAsTheyGo) {
  save(dir_.file("good.wav"), speech(16000, 0.2));
  save(dir_.file("good.flac"), speech(44100, 0.2, 2, SF_FORMAT_FLAC | SF_FORMAT_PCM_16));
  save(dir_.file("good.ogg"), speech(16000, 0.2, 1, SF_FORMAT_OGG | SF_FORMAT_VORBIS));
  for (const char* name : {"good.wav", "good.flac", "good.ogg"}) {
    std::ifstream file(dir_.file(name), std::ios::binary);
    const std::string good((std::istreambuf_iterator<char>(file)), {});
    uint32_t state = 7;
    for (int round = 0; round < 12; ++round) {
      std::string bad = good;
      // Headers are where lengths, rates and channel counts stand.
      for (int hit = 0; hit < 4; ++hit) {
        state = state * 1664525U + 1013904223U;
        bad[(state >> 8) % std::min<size_t>(bad.size(), 64)] = static_cast<char>(state >> 24);
      }
      if (round % 3 == 0) bad.resize(bad.size() / 2);
      const Result result = run({"clean", "-f", dir_.write("bad", bad), dir_.file("out.wav")});
      EXPECT_TRUE(result.code == 0 || result.code == 3 || result.code == 4 || result.code == 5)
          << name << " round " << round << ": " << result.code << "\n"
          << result.err;
      if (result.code != 0) {
        EXPECT_NE(result.err.find("bad"), std::string::npos) << result.err;
      }
    }
  }
}

TEST_F(CleanFiles, WhatIsNoSoundFileIsNamed) {
  dir_.write("text.wav", "this is no sound\n");
  mkfifo(dir_.file("pipe.wav").c_str(), 0600);
  const std::vector<std::pair<std::string, std::string>> cases = {
      {dir_.file("text.wav"), "no audio that can be read"},
      {dir_.file("missing.wav"), "No such file"},
      {dir_.file("models"), "is a directory"},
      {dir_.file("pipe.wav"), "is not a regular file"},
      {"/dev/zero", "is not a regular file"},
  };
  for (const auto& [path, reason] : cases) {
    const Result result = run({"clean", path, dir_.file("out.wav")});
    EXPECT_EQ(result.code, 3) << path;
    EXPECT_NE(result.err.find(path + ": "), std::string::npos) << result.err;
    EXPECT_NE(result.err.find(reason), std::string::npos) << result.err;
  }
  EXPECT_FALSE(std::filesystem::exists(dir_.file("out.wav")));
}

}  // namespace
}  // namespace orvel_test
