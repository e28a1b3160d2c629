// Containers, encodings, and what is kept of a file besides its sound; damaged files.
#include <sys/stat.h>

#include <limits>
#include <utility>

#include "tests/cli/program.h"
#include "tools/audio.h"

namespace orvel_test {
namespace {

namespace TOOLS = ORVEL::TOOLS;

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
  const size_t samples = load(dir_.file("in")).samples.size();
  const Result result = run({"clean", dir_.file("in"), dir_.file(c.outName)});
  ASSERT_EQ(result.code, 0) << result.err;
  const Sound out = load(dir_.file(c.outName));
  EXPECT_EQ(out.format, c.outFormat) << std::hex << out.format;
  EXPECT_EQ(out.samples.size(), samples);
  EXPECT_EQ(bestLag(channel(load(dir_.file("in")), 0), channel(out, 0)), 0);
}

constexpr int kWav = SF_FORMAT_WAV;
constexpr int kMp3 = SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III;
INSTANTIATE_TEST_SUITE_P(
    All, CleanFormats,
    ::testing::Values(
        Case{"wav24", kWav | SF_FORMAT_PCM_24, "o.wav", kWav | SF_FORMAT_PCM_24},
        Case{"wav8", kWav | SF_FORMAT_PCM_U8, "o.wav", kWav | SF_FORMAT_PCM_U8},
        Case{"wavFloat", kWav | SF_FORMAT_FLOAT, "o.wav", kWav | SF_FORMAT_FLOAT},
        Case{"wavLaw", kWav | SF_FORMAT_ULAW, "o.wav", kWav | SF_FORMAT_ULAW},
        Case{"sameWithoutExtension", SF_FORMAT_FLAC | SF_FORMAT_PCM_24, "o",
             SF_FORMAT_FLAC | SF_FORMAT_PCM_24},
        Case{"wav8ToFlac", kWav | SF_FORMAT_PCM_U8, "o.FLAC", SF_FORMAT_FLAC | SF_FORMAT_PCM_S8},
        Case{"wavFloatToFlac", kWav | SF_FORMAT_FLOAT, "o.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_24},
        Case{"alacToWav", SF_FORMAT_CAF | SF_FORMAT_ALAC_24, "o.wav", kWav | SF_FORMAT_PCM_24},
        Case{"mp3ToWav", kMp3, "o.wav", kWav | SF_FORMAT_PCM_16}, Case{"mp3", kMp3, "o.mp3", kMp3},
        Case{"opusInOgg", SF_FORMAT_OGG | SF_FORMAT_OPUS, "o.ogg", SF_FORMAT_OGG | SF_FORMAT_OPUS},
        Case{"wavToOpus", kWav | SF_FORMAT_PCM_16, "o.opus", SF_FORMAT_OGG | SF_FORMAT_OPUS}),
    [](const auto& tested) { return tested.param.name; });

class CleanFiles : public CliTest {};

// Reads one file whole and writes it as another, as the command does; gives the frames.
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

TEST_F(CleanFiles, EveryPairOfContainersWorks) {
  const std::vector<std::string> names = {"wav", "flac", "ogg",  "opus", "mp3", "aiff", "au",
                                          "caf", "w64",  "rf64", "raw",  "oga", "aifc", "snd"};
  const Sound in = speech(16000, 0.5);
  save(dir_.file("a.wav"), in);
  for (const std::string& from : names) {
    copy(dir_.file("a.wav"), dir_.file("in." + from));
    for (const std::string& to : names) {
      SCOPED_TRACE(from + " to " + to);
      const size_t frames = copy(dir_.file("in." + from), dir_.file("out." + to));
      EXPECT_GE(frames, in.samples.size());
      EXPECT_GE(copy(dir_.file("out." + to), dir_.file("back.wav")), frames);
    }
  }
}

TEST_F(CleanFiles, WhatAContainerCannotHoldIsSaid) {
  save(dir_.file("in.wav"), speech(44100, 0.2));
  save(dir_.file("six.wav"), speech(16000, 0.2, 6));
  for (const auto& [in, out, reason] : std::vector<std::array<std::string, 3>>{
           {"in.wav", "o.opus", "Opus only supports"}, {"six.wav", "o.mp3", "6 channel(s)"}}) {
    const Result result = run({"clean", dir_.file(in), dir_.file(out)});
    EXPECT_EQ(result.code, 4);
    EXPECT_NE(result.err.find(reason), std::string::npos) << result.err;
  }
}

TEST_F(CleanFiles, FineEncodingsKeepTheirResolution) {
  // A sound 20 dB below a 16-bit step survives in 24 bits.
  Sound in = speech(16000, 0.5, 1, SF_FORMAT_WAV | SF_FORMAT_PCM_24);
  for (float& x : in.samples) {
    x *= 0x1p-17F;
  }
  save(dir_.file("in.wav"), in);
  ASSERT_EQ(run({"clean", dir_.file("in.wav"), dir_.file("out.wav")}).code, 0);
  EXPECT_GT(snrDb(load(dir_.file("in.wav")).samples, load(dir_.file("out.wav")).samples), 20.0);
}

TEST_F(CleanFiles, TitlesGoAlong) {
  SF_INFO info{0, 16000, 1, SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 0, 0};
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

TEST_F(CleanFiles, NaNAndOverloadsStayFinite) {
  Sound in = speech(22050, 0.5, 1, SF_FORMAT_WAV | SF_FORMAT_FLOAT);
  in.samples[1000] = std::numeric_limits<float>::quiet_NaN();
  in.samples[2000] = std::numeric_limits<float>::infinity();
  in.samples[3000] = -3e38F;
  save(dir_.file("in.wav"), in);
  ASSERT_EQ(run({"clean", "-f", dir_.file("in.wav"), dir_.file("out.wav")}).code, 0);
  const Sound out = load(dir_.file("out.wav"));
  ASSERT_EQ(out.samples.size(), in.samples.size());
  for (float x : out.samples) {
    ASSERT_TRUE(x >= -4.0F && x <= 4.0F);  // false for NaN too
  }
}

TEST_F(CleanFiles, WhatIsMissingOfACutFileIsSaidAndTheRestIsCleaned) {
  for (const auto& [name, format] :
       std::vector<std::pair<std::string, int>>{{"wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16},
                                                {"wavex", SF_FORMAT_WAVEX | SF_FORMAT_PCM_24},
                                                {"adpcm", SF_FORMAT_WAV | SF_FORMAT_IMA_ADPCM},
                                                {"flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16},
                                                {"aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_16},
                                                {"au", SF_FORMAT_AU | SF_FORMAT_FLOAT},
                                                {"w64", SF_FORMAT_W64 | SF_FORMAT_PCM_16},
                                                {"rf64", SF_FORMAT_RF64 | SF_FORMAT_PCM_16},
                                                {"ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS},
                                                {"mp3", kMp3}}) {
    SCOPED_TRACE(name);
    save(dir_.file("whole"), speech(16000, 3.0, 1, format));
    const std::string whole = slurp(dir_.file("whole"));
    dir_.write("cut", whole.substr(0, whole.size() * 6 / 10));
    const Result result = run({"clean", "-f", dir_.file("cut"), dir_.file("out.wav")});
    EXPECT_EQ(result.code, 3);
    EXPECT_NE(result.err.find("cut: cut short: "), std::string::npos) << result.err;
    if (name != "ogg" && name != "adpcm") {  // which do not say how long they are
      EXPECT_NE(result.err.find("48000 samples (3.00 s) expected"), std::string::npos)
          << result.err;
    }
    const size_t kept = load(dir_.file("out.wav")).samples.size();
    EXPECT_GT(kept, 10000U);
    EXPECT_NE(result.err.find(std::to_string(kept) + " samples"), std::string::npos) << result.err;
  }
}

TEST_F(CleanFiles, DamagedFilesAreRefusedOrReadAsFarAsTheyGo) {
  save(dir_.file("good.wav"), speech(16000, 0.2));
  save(dir_.file("good.flac"), speech(44100, 0.2, 2, SF_FORMAT_FLAC | SF_FORMAT_PCM_16));
  save(dir_.file("good.ogg"), speech(16000, 0.2, 1, SF_FORMAT_OGG | SF_FORMAT_VORBIS));
  for (const char* name : {"good.wav", "good.flac", "good.ogg"}) {
    const std::string good = slurp(dir_.file(name));
    uint32_t state = 7;
    for (int round = 0; round < 8; ++round) {
      std::string bad = good;
      // Headers are where lengths, rates and channel counts stand.
      for (int hit = 0; hit < 4; ++hit) {
        state = state * 1664525U + 1013904223U;
        bad[(state >> 8) % std::min<size_t>(bad.size(), 64)] = static_cast<char>(state >> 24);
      }
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
  dir_.write("film.m4a", std::string("\0\0\0\x20", 4) + "ftypM4A ");
  const std::vector<std::pair<std::string, std::string>> cases = {
      {dir_.file("text.wav"), "no audio that can be read"},
      {dir_.file("missing.wav"), "No such file"},
      {dir_.file("models"), "is a directory"},
      {dir_.file("film.m4a"), "ffmpeg -i '" + dir_.file("film.m4a") + "' "},
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
