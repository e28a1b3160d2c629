#include "tools/sound_format.h"

#include <sndfile.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "tools/stream_format.h"
#include "tools/tool_error.h"

namespace ORVEL::TOOLS {
namespace {

namespace fs = std::filesystem;

struct Container {
  int format;
  int encoding;  // the only one there, or 0
};

const std::map<std::string, Container> kContainers = {
    {".wav", {SF_FORMAT_WAV, 0}},
    {".flac", {SF_FORMAT_FLAC, 0}},
    {".ogg", {SF_FORMAT_OGG, 0}},
    {".oga", {SF_FORMAT_OGG, 0}},
    {".opus", {SF_FORMAT_OGG, SF_FORMAT_OPUS}},
    {".mp3", {SF_FORMAT_MPEG, SF_FORMAT_MPEG_LAYER_III}},
    {".aiff", {SF_FORMAT_AIFF, 0}},
    {".aif", {SF_FORMAT_AIFF, 0}},
    {".aifc", {SF_FORMAT_AIFF, 0}},
    {".au", {SF_FORMAT_AU, 0}},
    {".snd", {SF_FORMAT_AU, 0}},
    {".caf", {SF_FORMAT_CAF, 0}},
    {".w64", {SF_FORMAT_W64, 0}},
    {".rf64", {SF_FORMAT_RF64, 0}},
};

std::string extensionOf(const fs::path& path) {
  std::string text = path.extension().string();
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

// A file that is written nowhere.
struct Nowhere {
  sf_count_t at = 0;
  sf_count_t size = 0;
};

// Why libsndfile refuses to write the format, or "". What it says without opening is not the whole
// truth: Opus takes five rates, WAV takes no MP3.
std::string refusal(int format, const AudioSpec& spec) {
  SF_INFO info{};
  info.format = format;
  info.samplerate = spec.sampleRate;
  info.channels = spec.channels;
  if (sf_format_check(&info) != SF_TRUE) {
    return "the container cannot hold them";
  }
  SF_VIRTUAL_IO io{};
  io.get_filelen = [](void* user) { return static_cast<Nowhere*>(user)->size; };
  io.tell = [](void* user) { return static_cast<Nowhere*>(user)->at; };
  io.seek = [](sf_count_t offset, int whence, void* user) {
    auto& file = *static_cast<Nowhere*>(user);
    file.at = offset + (whence == SEEK_CUR ? file.at : whence == SEEK_END ? file.size : 0);
    return file.at;
  };
  io.read = [](void*, sf_count_t, void*) { return sf_count_t{0}; };
  io.write = [](const void*, sf_count_t count, void* user) {
    auto& file = *static_cast<Nowhere*>(user);
    file.at += count;
    file.size = std::max(file.size, file.at);
    return count;
  };
  Nowhere nowhere;
  static std::mutex mutex;  // libsndfile keeps its reason in one place for all threads
  const std::lock_guard lock(mutex);
  SNDFILE* file = sf_open_virtual(&io, SFM_WRITE, &info, &nowhere);
  if (file == nullptr) {
    return sf_strerror(nullptr);
  }
  sf_close(file);
  return {};
}

// Encodings to try, best first.
std::vector<int> encodings(int inputFormat) {
  const int own = inputFormat & SF_FORMAT_SUBMASK;
  const int bits = pcmBits(inputFormat);
  std::vector<int> list = {own};
  if (bits == 8) {
    list.insert(list.end(), {SF_FORMAT_PCM_S8, SF_FORMAT_PCM_U8});
  }
  if (own == SF_FORMAT_FLOAT || own == SF_FORMAT_DOUBLE) {
    list.insert(list.end(), {SF_FORMAT_FLOAT, SF_FORMAT_PCM_24});
  }
  if (bits > 24) {
    list.push_back(SF_FORMAT_PCM_32);
  }
  if (bits > 16) {
    list.push_back(SF_FORMAT_PCM_24);
  }
  list.insert(list.end(), {SF_FORMAT_PCM_16, SF_FORMAT_VORBIS, SF_FORMAT_OPUS});
  return list;
}

int containerOf(int inputFormat, const fs::path& path, const fs::path& inputPath,
                int& onlyEncoding) {
  const int own = inputFormat & SF_FORMAT_TYPEMASK;
  const std::string extension = extensionOf(path);
  const auto known = kContainers.find(extension);
  if (known == kContainers.end()) {
    if (own != 0 && (extension.empty() || extension == extensionOf(inputPath))) {
      return own;
    }
    if (extension.empty()) {
      throw ToolError(ExitCode::kUsage,
                      path.string() + ": needs an extension that names its format, such as .wav");
    }
    throw ToolError(
        ExitCode::kUsage,
        path.string() + ": no audio format is known by the extension '" + extension + "'");
  }
  onlyEncoding = known->second.encoding;
  // An extensible WAV keeps its form: it carries the speaker layout.
  return own == SF_FORMAT_WAVEX && known->second.format == SF_FORMAT_WAV ? own
                                                                         : known->second.format;
}

// Beyond it a WAV file's sizes do not fit their fields.
bool exceedsWav(int encoding, int channels, std::int64_t frames) {
  constexpr std::int64_t kLimit = 0xF0000000;
  const std::int64_t sampleBytes = encoding == SF_FORMAT_DOUBLE  ? 8
                                   : encoding == SF_FORMAT_FLOAT ? 4
                                                                 : pcmBits(encoding) / 8;
  return frames > kLimit / (std::max<std::int64_t>(sampleBytes, 1) * channels);
}

}  // namespace

bool isHeaderless(const fs::path& path) {
  const std::string extension = extensionOf(path);
  return extension == ".raw" || extension == ".pcm";
}

bool needsConversion(const fs::path& path) {
  static const std::set<std::string> extensions = {
      ".3gp", ".aac", ".ac3", ".amr", ".avi",  ".flv", ".m4a", ".m4b", ".m4v", ".mka",
      ".mkv", ".mov", ".mp4", ".mpg", ".webm", ".wma", ".wmv", ".wv",  ".ape"};
  return extensions.contains(extensionOf(path));
}

bool isSoundFile(const std::string& head) {
  constexpr std::array<std::string_view, 9> kMagic = {"RIFF", "RF64", "fLaC", "OggS", "FORM",
                                                      ".snd", "caff", "riff", "ID3"};
  return std::any_of(kMagic.begin(), kMagic.end(),
                     [&](std::string_view magic) { return head.starts_with(magic); });
}

int outputFormat(int inputFormat, const fs::path& path, const fs::path& inputPath,
                 const AudioSpec& spec, std::int64_t frames) {
  int only = 0;
  const int container = containerOf(inputFormat, path, inputPath, only);
  const int endianness = container == (inputFormat & SF_FORMAT_TYPEMASK)
                             ? inputFormat & SF_FORMAT_ENDMASK
                             : SF_ENDIAN_FILE;
  std::string reason;
  for (int encoding : only != 0 ? std::vector<int>{only} : encodings(inputFormat)) {
    for (int end : {endianness, static_cast<int>(SF_ENDIAN_FILE)}) {
      reason = refusal(container | encoding | end, spec);
      if (reason.empty()) {
        const bool wav = container == SF_FORMAT_WAV || container == SF_FORMAT_WAVEX;
        return wav && exceedsWav(encoding, spec.channels, frames) ? SF_FORMAT_RF64 | encoding
                                                                  : container | encoding | end;
      }
    }
  }
  throw ToolError(ExitCode::kOutput, path.string() + ": cannot hold " +
                                         std::to_string(spec.channels) + " channel(s) at " +
                                         std::to_string(spec.sampleRate) + " Hz: " + reason);
}

}  // namespace ORVEL::TOOLS
