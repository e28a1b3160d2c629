// Raw audio on standard input and output: nothing but samples on standard output, in every format.
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
  for (const bool verbose : {false, true}) {
    std::vector<std::string> words = {"clean", "--rate", "16000", "--channels", "2", "-", "-"};
    if (verbose) words.insert(words.begin() + 1, "--verbose");
    const Result result = run(words, raw16(in.samples));
    ASSERT_EQ(result.code, 0) << result.err;
    const std::vector<float> out = fromRaw16(result.out);
    ASSERT_EQ(out.size(), in.samples.size());
    EXPECT_GT(snrDb(in.samples, out), 60.0);
    EXPECT_EQ(result.err.empty(), !verbose) << result.err;
  }
}

TEST_F(CleanPipe, EveryFormatIsTheInverseOfItself) {
  const Sound in = speech(16000, 0.3);
  for (const auto& [format, size] :
       std::vector<std::pair<std::string, size_t>>{{"s24le", 3}, {"s32le", 4}, {"f32le", 4}}) {
    // To raw, and back to a file whose encoding holds the same samples.
    save(dir_.file("in.wav"), in);
    const Result raw = run({"clean", "--format", format, dir_.file("in.wav"), "-"});
    ASSERT_EQ(raw.code, 0) << raw.err;
    ASSERT_EQ(raw.out.size(), in.samples.size() * size) << format;
    const std::string back = dir_.file(format + ".wav");
    ASSERT_EQ(run({"clean", "--rate", "16000", "--format", format, "-", back}, raw.out).code, 0);
    EXPECT_GT(snrDb(in.samples, load(back).samples), 60.0) << format;
    EXPECT_EQ(load(back).format & SF_FORMAT_SUBMASK, format == "s24le"   ? SF_FORMAT_PCM_24
                                                     : format == "s32le" ? SF_FORMAT_PCM_32
                                                                         : SF_FORMAT_FLOAT);
  }
}

TEST_F(CleanPipe, AHalfSampleAtTheEndIsDroppedWithAWarning) {
  const Result result = run({"clean", "--rate", "8000", "-", "-"}, std::string(321, '\0'));
  EXPECT_EQ(result.code, 0);
  EXPECT_EQ(result.out.size(), 320U);
  EXPECT_NE(result.err.find("1 bytes at the end"), std::string::npos) << result.err;
}

}  // namespace
}  // namespace orvel_test
