// Writes the seed corpus of the audio target: make_audio_seeds FOLDER. One short file per container
// and encoding, each behind the two bytes that tell the target what to do with it.
#include <sndfile.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include "tests/support/signals.h"

namespace fs = std::filesystem;

namespace {

struct Kind {
  const char* name;
  int format;
  int rate;
  int channels;
};

constexpr Kind kKinds[] = {
    {"wav16", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 8000, 1},
    {"wavex24", SF_FORMAT_WAVEX | SF_FORMAT_PCM_24, 48000, 2},
    {"wavfloat", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 44100, 1},
    {"wavulaw", SF_FORMAT_WAV | SF_FORMAT_ULAW, 8000, 1},
    {"wavadpcm", SF_FORMAT_WAV | SF_FORMAT_IMA_ADPCM, 16000, 1},
    {"wavgsm", SF_FORMAT_WAV | SF_FORMAT_GSM610, 8000, 1},
    {"w64", SF_FORMAT_W64 | SF_FORMAT_PCM_32, 22050, 1},
    {"rf64", SF_FORMAT_RF64 | SF_FORMAT_PCM_16, 16000, 1},
    {"aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_S8, 32000, 2},
    {"au", SF_FORMAT_AU | SF_FORMAT_DOUBLE, 11025, 1},
    {"caf", SF_FORMAT_CAF | SF_FORMAT_ALAC_16, 16000, 1},
    {"flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 16000, 2},
    {"vorbis", SF_FORMAT_OGG | SF_FORMAT_VORBIS, 16000, 1},
    {"opus", SF_FORMAT_OGG | SF_FORMAT_OPUS, 48000, 1},
    {"voc", SF_FORMAT_VOC | SF_FORMAT_PCM_U8, 8000, 1},
    {"mat5", SF_FORMAT_MAT5 | SF_FORMAT_PCM_16, 8000, 1},
};

std::string encoded(const Kind& kind, const fs::path& scratch) {
  SF_INFO info{};
  info.format = kind.format;
  info.samplerate = kind.rate;
  info.channels = kind.channels;
  SNDFILE* file = sf_open(scratch.c_str(), SFM_WRITE, &info);
  if (file == nullptr) return {};
  const std::vector<std::int16_t> samples = orvel_test::speechLike(kind.rate, 0.06);
  const auto frames = static_cast<sf_count_t>(samples.size()) / kind.channels;
  sf_writef_short(file, samples.data(), frames);
  sf_close(file);
  std::ifstream in(scratch, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: make_audio_seeds FOLDER\n";
    return 2;
  }
  const fs::path folder = fs::path(argv[1]) / "cli_audio";
  fs::create_directories(folder);
  const fs::path scratch = folder / "scratch";
  for (const Kind& kind : kKinds) {
    const std::string bytes = encoded(kind, scratch);
    if (!bytes.empty()) std::ofstream(folder / kind.name, std::ios::binary) << "\x01\x01" << bytes;
  }
  fs::remove(scratch);
  const std::vector<std::int16_t> speech = orvel_test::speechLike(8000, 0.1);
  const std::string raw(reinterpret_cast<const char*>(speech.data()), speech.size() * 2);
  for (char choice = 0; choice < 16; choice = static_cast<char>(choice + 5)) {
    std::ofstream(folder / ("raw" + std::to_string(choice)), std::ios::binary)
        << '\0' << choice << raw;
  }
  return 0;
}
