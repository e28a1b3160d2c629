// Any bytes as the audio of `orvel clean` and `orvel vad`: a sound file, or raw samples on a
// descriptor. The output is as long as what was read and finite; trouble is a ToolError.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/memory_file.h"
#include "fuzz/require.h"
#include "tests/support/temp_dir.h"
#include "tests/support/test_model.h"
#include "tools/engine.h"
#include "tools/raw_io.h"
#include "tools/sound_file.h"
#include "tools/sound_format.h"
#include "tools/stream_cleaner.h"
#include "tools/tool_error.h"
#include "tools/vad_stream.h"

namespace {

using namespace ORVEL::TOOLS;
using orvel_fuzz::MemoryFile;
using orvel_fuzz::require;

constexpr std::size_t kBlockFrames = 512;
constexpr std::size_t kMostSamples = 1U << 15U;
constexpr int kMostChannels = 8;

// One engine for all inputs, with a small model of each kind and rate.
struct World {
  World() {
    directory.write("fuzz-noise.bin", orvel_test::makeModel({.rate = 8000}).weights().bytes());
    directory.write("fuzz-noise.ctl", "WEIGHT fuzz-noise.bin\n");
    directory.write("fuzz-voice.bin", orvel_test::makeVadModel().weights().bytes());
    directory.write("fuzz-voice.ctl", "WEIGHT fuzz-voice.bin\n");
    const ModelSet models{directory.path(), {"fuzz-noise.ctl", "fuzz-voice.ctl"}, true};
    engine = std::make_unique<Engine>(models, std::vector<Setting>{}, console);
  }
  orvel_test::TempDir directory;
  Console console{false};
  std::unique_ptr<Engine> engine;
};

std::unique_ptr<AudioSource> openRaw(const MemoryFile& file, unsigned choice, int descriptor) {
  constexpr int kRates[] = {8000, 11025, 22050, 44100, 48000, 1000, 192000, 16000};
  constexpr RawFormat kFormats[] = {RawFormat::s16, RawFormat::s24, RawFormat::s32, RawFormat::f32};
  const AudioSpec spec{kRates[choice % 8], 1 + static_cast<int>(choice / 8 % 3)};
  return std::make_unique<RawReader>(descriptor, file.path(), spec, kFormats[choice / 64 % 4]);
}

std::unique_ptr<AudioSink> openSink(const AudioSource& source, const World& world) {
  const auto* file = dynamic_cast<const SoundFileReader*>(&source);
  const int like = file != nullptr ? file->format() : SF_FORMAT_WAV | SF_FORMAT_PCM_16;
  const std::string path = world.directory.file("out.wav");
  auto sink = std::make_unique<SoundFileWriter>(
      path, outputFormat(like, path, source.spec(), source.claimedFrames().value_or(0)),
      source.spec(), true);
  if (file != nullptr) sink->copyDescription(*file);
  return sink;
}

void requireFinite(const std::vector<float>& samples) {
  for (const float sample : samples)
    require(std::isfinite(sample) && std::abs(sample) < 4.0F, "output is finite and in range");
}

void process(AudioSource& source, World& world) {
  const AudioSpec spec = source.spec();
  const auto channels = static_cast<std::size_t>(spec.channels);
  if (spec.channels > kMostChannels) return;
  const std::unique_ptr<AudioSink> sink = openSink(source, world);
  StreamCleaner cleaner(*world.engine, spec, std::nullopt);
  std::size_t scores = 0;
  VadStream voice(*world.engine, spec, [&](double score) {
    require(score >= 0.0 && score <= 1.0, "a score is a probability");
    ++scores;
  });
  std::vector<float> block(kBlockFrames * channels);
  std::vector<float> output;
  std::size_t in = 0;
  std::size_t out = 0;
  while (in * channels < kMostSamples) {
    const std::size_t frames = source.read(block);
    if (frames == 0) break;
    require(frames <= kBlockFrames, "no more is read than there is room for");
    in += frames;
    const std::span<const float> samples(block.data(), frames * channels);
    output.clear();
    cleaner.push(samples, output);
    requireFinite(output);
    sink->write(output);
    out += output.size();
    voice.push(samples);
  }
  output.clear();
  cleaner.finish(output);
  requireFinite(output);
  sink->write(output);
  sink->commit();
  voice.finish();
  require(out + output.size() == in * channels, "output is as long as input");
  const auto hops = std::ceil(static_cast<double>(in) * 100.0 / spec.sampleRate);
  require(std::abs(static_cast<double>(scores) - hops) <= 1.0, "a score for each 10 ms");
}

}  // namespace

// libsndfile does not give back what its codecs took for a damaged header: a fault of its own.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libsndfile\nleak:libvorbis\nleak:libogg\nleak:libFLAC\nleak:libopus\n"
         "leak:libmpg123\nleak:libmp3lame\n";
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static World world;
  if (size < 2) return 0;
  MemoryFile file(orvel_fuzz::text(data + 2, size - 2));
  try {
    const std::unique_ptr<AudioSource> source =
        data[0] % 4 == 0 ? openRaw(file, data[1], file.descriptor())
                         : std::make_unique<SoundFileReader>(file.path());
    process(*source, world);
  } catch (const ToolError& error) {
    require(error.what()[0] != '\0', "an error has a text");
  }
  return 0;
}
