// Pipes, FIFOs and descriptors in place of files: with a WAV header, with another format, and without.
#include <cmath>
#include <cstring>

#include "tests/cli/program.h"

namespace orvel_test {
namespace {

class CleanPipe : public CliTest {};

std::string raw16(const std::vector<float>& samples) {
  std::string bytes;
  for (float x : samples) {
    const auto value = static_cast<int16_t>(std::lround(x * 32768.0F));
    bytes.append(reinterpret_cast<const char*>(&value), 2);
  }
  return bytes;
}

std::vector<float> fromRaw16(const std::string& bytes) {
  std::vector<float> samples(bytes.size() / 2);
  for (size_t i = 0; i < samples.size(); ++i) {
    int16_t value = 0;
    std::memcpy(&value, bytes.data() + 2 * i, 2);
    samples[i] = static_cast<float>(value) / 32768.0F;
  }
  return samples;
}

TEST_F(CleanPipe, SamplesComeBackAlignedAndAloneOnStandardOutput) {
  const Sound in = speech(16000, 0.7, 2);
  const Result result = run({"clean", "--verbose", "--rate", "16000", "--channels", "2", "-", "-"},
                            raw16(in.samples));
  ASSERT_EQ(result.code, 0) << result.err;
  const std::vector<float> out = fromRaw16(result.out);
  ASSERT_EQ(out.size(), in.samples.size());
  EXPECT_GT(snrDb(in.samples, out), 60.0);
}

TEST_F(CleanPipe, EveryFormatIsTheInverseOfItself) {
  const Sound in = speech(16000, 0.3);
  save(dir_.file("in.wav"), in);
  struct {
    const char* format;
    size_t bytes;
    int encoding;
    double leastSnrDb;
  } const cases[] = {{"u8", 1, SF_FORMAT_PCM_U8, 20},
                     {"s24le", 3, SF_FORMAT_PCM_24, 60},
                     {"s32le", 4, SF_FORMAT_PCM_32, 60},
                     {"f32le", 4, SF_FORMAT_FLOAT, 60},
                     {"f64le", 8, SF_FORMAT_DOUBLE, 60}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.format);
    // To samples, and back to a file whose encoding holds the same ones.
    const Result raw = run({"clean", "--format", c.format, dir_.file("in.wav"), "-"});
    ASSERT_EQ(raw.code, 0) << raw.err;
    ASSERT_EQ(raw.out.size(), in.samples.size() * c.bytes);
    const std::string back = dir_.file(std::string(c.format) + ".wav");
    ASSERT_EQ(run({"clean", "--rate", "16000", "--format", c.format, "-", back}, raw.out).code, 0);
    EXPECT_GT(snrDb(in.samples, load(back).samples), c.leastSnrDb);
    EXPECT_EQ(load(back).format & SF_FORMAT_SUBMASK, c.encoding);
    // The same with a header of a stream whose length is not known.
    const std::string piped = std::string("\"$ORVEL\" clean --container wav ") + back +
                              " - | tee s.wav | \"$ORVEL\" clean -f - p.wav";
    ASSERT_EQ(shell(dir_, piped).code, 0);
    EXPECT_EQ(load(dir_.file("p.wav")).format & SF_FORMAT_SUBMASK, c.encoding);
    EXPECT_GT(snrDb(in.samples, load(dir_.file("p.wav")).samples), c.leastSnrDb);
    EXPECT_EQ(slurp(dir_.file("s.wav")).substr(40, 4), "\xFF\xFF\xFF\xFF");
  }
}

TEST_F(CleanPipe, EveryNameOfAPipeWorks) {
  const Sound in = speech(16000, 0.6, 2, SF_FORMAT_WAV | SF_FORMAT_PCM_24);
  save(dir_.file("in.wav"), in);
  save(dir_.file("in.flac"), speech(16000, 0.6, 2, SF_FORMAT_FLAC | SF_FORMAT_PCM_24));
  save(dir_.file("law.wav"), speech(16000, 0.6, 2, SF_FORMAT_WAV | SF_FORMAT_ULAW));
  ASSERT_EQ(run({"clean", dir_.file("in.wav"), dir_.file("file.wav")}).code, 0);
  ASSERT_EQ(run({"clean", dir_.file("law.wav"), dir_.file("filelaw.wav")}).code, 0);
  const std::vector<float> expected = load(dir_.file("file.wav")).samples;
  const std::vector<float> expectedLaw = load(dir_.file("filelaw.wav")).samples;
  for (const std::string script : {
           "\"$ORVEL\" clean - got.wav < in.wav",
           "cat in.wav | \"$ORVEL\" clean - got.wav",
           "\"$ORVEL\" clean /dev/fd/5 got.wav 5< in.wav",
           "\"$ORVEL\" clean <(cat in.wav) got.wav",
           "mkfifo p; cat in.wav > p & \"$ORVEL\" clean p got.wav",
           "cat in.flac | \"$ORVEL\" clean /dev/stdin got.wav",
           "cat law.wav | \"$ORVEL\" clean - got.wav",
           "\"$ORVEL\" clean --container wav in.wav /dev/stdout | cat > got.wav",
           "\"$ORVEL\" clean --container wav in.wav /dev/fd/1 > got.wav",
           "\"$ORVEL\" clean --container wav in.wav >(cat > got.wav); sleep 0.2; wait",
           "mkfifo q.wav; cat q.wav > got.wav & \"$ORVEL\" clean in.wav q.wav; wait $!",
           "\"$ORVEL\" clean --rate 16000 --channels 2 --format s24le <(tail -c +45 in.wav) "
           "got.wav",
           "tail -c +45 in.wav > a.raw; \"$ORVEL\" clean --rate 16000 --channels 2 --format s24le "
           "a.raw got.wav",
       }) {
    const Result result = shell(dir_, "set -o pipefail; rm -f got.wav p q.wav; " + script);
    EXPECT_EQ(result.code, 0) << script << "\n" << result.err;
    EXPECT_EQ(result.err, "") << script;
    const Sound got = load(dir_.file("got.wav"));
    EXPECT_EQ(got.samples, script.find("law") == std::string::npos ? expected : expectedLaw)
        << script << ": " << got.samples.size() << " of " << expected.size();
  }
  // A file in place of a pipe gets its length.
  ASSERT_EQ(shell(dir_, "\"$ORVEL\" clean --container wav in.wav - > got.wav").code, 0);
  EXPECT_NE(slurp(dir_.file("got.wav")).substr(40, 4), "\xFF\xFF\xFF\xFF");
}

TEST_F(CleanPipe, WhatIsMissingIsSaid) {
  save(dir_.file("in.wav"), speech(16000, 1.0));
  const Result cut = shell(dir_, "head -c 20044 in.wav | \"$ORVEL\" clean - got.wav");
  EXPECT_EQ(cut.code, 3);
  EXPECT_NE(cut.err.find("16000 samples (1.00 s) expected, 10000 samples (0.62 s) found"),
            std::string::npos)
      << cut.err;
  EXPECT_EQ(load(dir_.file("got.wav")).samples.size(), 10000U);

  const Result odd = run({"clean", "--rate", "8000", "-", "-"}, std::string(321, '\0'));
  EXPECT_EQ(odd.code, 0);
  EXPECT_EQ(odd.out.size(), 320U);
  EXPECT_NE(odd.err.find("1 bytes at the end"), std::string::npos) << odd.err;

  const Result film = shell(dir_, "printf '\\0\\0\\0 ftypM4A ' | \"$ORVEL\" clean - m.wav");
  EXPECT_EQ(film.code, 3);
  EXPECT_NE(film.err.find("ffmpeg -i FILE -f wav -"), std::string::npos) << film.err;
}

TEST_F(CleanPipe, AClosedPipeIsNoError) {
  save(dir_.file("in.wav"), speech(16000, 20.0));
  for (const char* command : {"clean in.wav -", "clean --container wav in.wav /dev/stdout",
                              "vad --frames in.wav in.wav in.wav"}) {
    const Result result = shell(dir_, std::string("\"$ORVEL\" ") + command +
                                          " | head -c 10 > /dev/null; exit ${PIPESTATUS[0]}");
    EXPECT_EQ(result.code, 128 + SIGPIPE) << command;
    EXPECT_EQ(result.err, "") << command;
  }
  const Result full = shell(dir_, "\"$ORVEL\" clean in.wav - > /dev/full");
  EXPECT_EQ(full.code, 4);
  EXPECT_NE(full.err.find("standard output: writing failed"), std::string::npos) << full.err;
}

}  // namespace
}  // namespace orvel_test
