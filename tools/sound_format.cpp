#include "tools/sound_format.h"

#include <sndfile.h>

#include <algorithm>
#include <cctype>
#include <initializer_list>
#include <map>
#include <string>
#include <vector>

#include "tools/tool_error.h"

namespace ORVEL::TOOLS {
namespace {

const std::map<std::string, int> kContainers = {
    {".wav", SF_FORMAT_WAV},   {".flac", SF_FORMAT_FLAC}, {".ogg", SF_FORMAT_OGG},
    {".oga", SF_FORMAT_OGG},   {".opus", SF_FORMAT_OGG},  {".aiff", SF_FORMAT_AIFF},
    {".aif", SF_FORMAT_AIFF},  {".aifc", SF_FORMAT_AIFF}, {".au", SF_FORMAT_AU},
    {".snd", SF_FORMAT_AU},    {".caf", SF_FORMAT_CAF},   {".w64", SF_FORMAT_W64},
    {".rf64", SF_FORMAT_RF64}, {".mp3", SF_FORMAT_MPEG},
};

std::string lowerExtension(const std::filesystem::path& path) {
  std::string text = path.extension().string();
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

bool writable(int format, const AudioSpec& spec) {
  SF_INFO info{};
  info.format = format;
  info.samplerate = spec.sampleRate;
  info.channels = spec.channels;
  return sf_format_check(&info) == SF_TRUE;
}

// Encodings to try, best first.
std::vector<int> encodings(int inputFormat, const std::string& extension) {
  const int own = inputFormat & SF_FORMAT_SUBMASK;
  std::vector<int> list;
  if (extension == ".opus") list.push_back(SF_FORMAT_OPUS);
  if (extension == ".mp3") list.push_back(SF_FORMAT_MPEG_LAYER_III);
  list.push_back(own);
  const int bits = pcmBits(inputFormat);
  if (bits == 8) list.insert(list.end(), {SF_FORMAT_PCM_S8, SF_FORMAT_PCM_U8});
  if (bits == 0 && (own == SF_FORMAT_FLOAT || own == SF_FORMAT_DOUBLE)) {
    list.insert(list.end(), {SF_FORMAT_FLOAT, SF_FORMAT_PCM_24});
  }
  if (bits > 24) list.push_back(SF_FORMAT_PCM_32);
  if (bits > 16) list.push_back(SF_FORMAT_PCM_24);
  list.insert(list.end(), {SF_FORMAT_PCM_16, SF_FORMAT_VORBIS, SF_FORMAT_OPUS});
  return list;
}

}  // namespace

int pcmBits(int format) {
  switch (format & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_PCM_U8:
      return 8;
    case SF_FORMAT_PCM_16:
    case SF_FORMAT_ALAC_16:
      return 16;
    case SF_FORMAT_ALAC_20:
      return 20;
    case SF_FORMAT_PCM_24:
    case SF_FORMAT_ALAC_24:
      return 24;
    case SF_FORMAT_PCM_32:
    case SF_FORMAT_ALAC_32:
      return 32;
    default:
      return 0;
  }
}

int outputFormat(int inputFormat, const std::filesystem::path& path, const AudioSpec& spec,
                 std::int64_t frames) {
  const std::string extension = lowerExtension(path);
  int container = inputFormat & SF_FORMAT_TYPEMASK;
  if (!extension.empty()) {
    const auto known = kContainers.find(extension);
    if (known == kContainers.end()) {
      throw ToolError(
          ExitCode::usage,
          path.string() + ": no audio format is known by the extension '" + extension + "'");
    }
    // An extensible WAV keeps its form: it carries the speaker layout.
    const bool extensible = container == SF_FORMAT_WAVEX && known->second == SF_FORMAT_WAV;
    if (!extensible) container = known->second;
  }
  for (int encoding : encodings(inputFormat, extension)) {
    if (!writable(container | encoding, spec)) continue;
    const std::int64_t bytesPerSample =
        std::max(1, encoding == SF_FORMAT_DOUBLE  ? 8
                    : encoding == SF_FORMAT_FLOAT ? 4
                                                  : pcmBits(encoding) / 8);
    constexpr std::int64_t kWavLimit = 0xF0000000;
    if ((container == SF_FORMAT_WAV || container == SF_FORMAT_WAVEX) &&
        frames > kWavLimit / (bytesPerSample * spec.channels)) {
      container = SF_FORMAT_RF64;
    }
    return container | encoding;
  }
  throw ToolError(ExitCode::output, path.string() + ": the format cannot hold " +
                                        std::to_string(spec.channels) + " channels at " +
                                        std::to_string(spec.sampleRate) + " Hz");
}

}  // namespace ORVEL::TOOLS
