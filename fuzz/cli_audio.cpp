// Any bytes as the audio of `orvel clean` and `orvel vad`: a sound file, or a pipe with a WAV header or
// without. The output is as long as what was read and finite; trouble is a ToolError.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/support.h"
#include "tests/support/temp_dir.h"
#include "tests/support/test_model.h"
#include "tools/aligned_cleaner.h"
#include "tools/audio.h"
#include "tools/sound_file.h"
#include "tools/stream_audio.h"
#include "tools/stream_format.h"
#include "tools/tool_error.h"

namespace {

using namespace ORVEL::TOOLS;
using orvel_fuzz::MemoryFile;
using orvel_fuzz::require;

constexpr std::size_t kBlockFrames = 512;
constexpr std::size_t kMostSamples = 1U << 15U;
constexpr int kMostChannels = 8;

// One small model of each kind for all inputs.
struct World {
  World() {
    const auto load = [this](const std::string& bytes, const char* name) {
      library.loadModelFromMemory({}, std::as_bytes(std::span(bytes)), name);
    };
    load(orvel_test::makeModel({.rate = 8000}).weights().bytes(), "noise");
    load(orvel_test::makeVadModel().weights().bytes(), "voice");
  }
  orvel_test::TempDir directory;
  orvel::Library library;
};

std::unique_ptr<AudioSource> openPipe(const std::string& bytes, UniqueFd descriptor,
                                      unsigned choice) {
  std::size_t at = 0;
  const auto header = readWavHeader([&](std::size_t size) {
    const std::string part = bytes.substr(std::min(at, bytes.size()), size);
    at += part.size();
    return part;
  });
  if (header && header->format && header->spec.sampleRate >= 1000 &&
      header->spec.sampleRate <= 768000) {
    ::lseek(descriptor.get(), static_cast<off_t>(header->dataOffset), SEEK_SET);
    return std::make_unique<StreamReader>(std::move(descriptor), "wav", header->spec,
                                          *header->format, std::string(), header->dataBytes);
  }
  constexpr int kRates[] = {8000, 11025, 22050, 44100, 48000, 1000, 192000, 16000};
  constexpr SampleFormat kFormats[] = {SampleFormat::kS16, SampleFormat::kS24, SampleFormat::kU8,
                                       SampleFormat::kF64};
  const AudioSpec spec{kRates[choice % 8], 1 + static_cast<int>(choice / 8 % 3)};
  return std::make_unique<StreamReader>(std::move(descriptor), "samples", spec,
                                        kFormats[choice / 64 % 4]);
}

void requireFinite(const std::vector<float>& samples) {
  for (const float sample : samples) {
    require(std::isfinite(sample) && std::abs(sample) < 4.0F, "output is finite and in range");
  }
}

void process(AudioSource& source, World& world) {
  const AudioSpec spec = source.spec();
  const auto channels = static_cast<std::size_t>(spec.channels);
  if (spec.channels > kMostChannels) {
    return;
  }
  const auto sink = openSink(world.directory.file("out.wav"), source, {}, true);
  AlignedCleaner cleaner(world.library, {spec, "noise", std::nullopt});
  std::size_t scores = 0;
  const auto onScore = [&](float score) {
    require(score >= 0.0F && score <= 1.0F, "a score is a probability");
    ++scores;
  };
  const int voiceRate = sessionRate(spec.sampleRate);
  orvel::VoiceDetector voice(world.library,
                             {.rate = voiceRate, .channels = spec.channels, .model = "voice"});
  std::vector<float> block(kBlockFrames * channels);
  std::vector<float> output;
  std::size_t in = 0;
  std::size_t out = 0;
  while (in * channels < kMostSamples) {
    const std::size_t frames = source.read(block);
    if (frames == 0) {
      break;
    }
    require(frames <= kBlockFrames, "no more is read than there is room for");
    in += frames;
    const std::span<const float> samples(block.data(), frames * channels);
    output.clear();
    const orvel::StreamCleaner::Block due = cleaner.push(samples);
    orvel::StreamCleaner::process(std::span(&due, 1));
    cleaner.collect(output);
    requireFinite(output);
    sink->write(output);
    out += output.size();
    voice.process(samples, onScore);
  }
  output.clear();
  cleaner.finish(output);
  requireFinite(output);
  sink->write(output);
  sink->commit();
  voice.flush(onScore);
  require(out + output.size() == in * channels, "output is as long as input");
  const auto hops = std::ceil(static_cast<double>(in) * 100.0 / voiceRate);
  require(std::abs(static_cast<double>(scores) - hops) <= 1.0, "a score for each 10 ms");
  source.shortfall();
}

}  // namespace

// libsndfile does not give back what its codecs took for a damaged header: a fault of its own.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libsndfile\nleak:libvorbis\nleak:libogg\nleak:libFLAC\nleak:libopus\n"
         "leak:libmpg123\nleak:libmp3lame\n";
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static World world;
  if (size < 2) {
    return 0;
  }
  const std::string bytes(orvel_fuzz::text(data + 2, size - 2));
  MemoryFile file(bytes);
  UniqueFd descriptor(::dup(file.descriptor()));
  try {
    const std::unique_ptr<AudioSource> source =
        data[0] % 4 == 0 ? openPipe(bytes, std::move(descriptor), data[1])
                         : std::make_unique<SoundFileReader>(std::move(descriptor), "file");
    if (source->spec().sampleRate >= 1000 && source->spec().sampleRate <= 768000) {
      process(*source, world);
    }
  } catch (const ToolError& error) {
    require(error.what()[0] != '\0', "an error has a text");
  }
  return 0;
}
