#include "tools/report_page.h"

#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "tools/sound_file.h"
#include "tools/tool_error.h"

namespace ORVEL::TOOLS {
namespace {

// A file in memory, as libsndfile calls it.
struct MemoryFile {
  std::string bytes;
  std::size_t at = 0;

  static MemoryFile& of(void* self) { return *static_cast<MemoryFile*>(self); }
  static sf_count_t length(void* self) { return static_cast<sf_count_t>(of(self).bytes.size()); }
  static sf_count_t tell(void* self) { return static_cast<sf_count_t>(of(self).at); }
  static sf_count_t seek(sf_count_t offset, int whence, void* self) {
    const sf_count_t from = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? tell(self) : length(self);
    of(self).at = static_cast<std::size_t>(std::max<sf_count_t>(from + offset, 0));
    return tell(self);
  }
  static sf_count_t read(void* data, sf_count_t count, void* self) {
    MemoryFile& file = of(self);
    const std::size_t there = file.bytes.size() - std::min(file.at, file.bytes.size());
    const std::size_t size = std::min(static_cast<std::size_t>(count), there);
    std::memcpy(data, file.bytes.data() + file.at, size);
    file.at += size;
    return static_cast<sf_count_t>(size);
  }
  static sf_count_t write(const void* data, sf_count_t count, void* self) {
    MemoryFile& file = of(self);
    const auto size = static_cast<std::size_t>(count);
    file.bytes.resize(std::max(file.bytes.size(), file.at + size));
    std::memcpy(file.bytes.data() + file.at, data, size);
    file.at += size;
    return count;
  }
};

std::string escapedHtml(const std::string& text) {
  std::string result;
  for (const char c : text) {
    result += c == '&'   ? "&amp;"
              : c == '<' ? "&lt;"
              : c == '>' ? "&gt;"
              : c == '"' ? "&quot;"
                         : std::string(1, c);
  }
  return result;
}

}  // namespace

std::string flac(std::span<const float> mono, int rate) {
  MemoryFile memory;
  SF_INFO info{};
  info.format = SF_FORMAT_FLAC | SF_FORMAT_PCM_16;
  info.samplerate = rate;
  info.channels = 1;
  SF_VIRTUAL_IO calls{MemoryFile::length, MemoryFile::seek, MemoryFile::read, MemoryFile::write,
                      MemoryFile::tell};
  SndfileHandle file(sf_open_virtual(&calls, SFM_WRITE, &info, &memory));
  std::vector<short> samples(mono.size());
  std::transform(mono.begin(), mono.end(), samples.begin(), [](float x) {
    return static_cast<short>(std::lrint(std::clamp(x * 32768.0F, -32768.0F, 32767.0F)));
  });
  const auto count = static_cast<sf_count_t>(samples.size());
  if (!file || sf_write_short(file.get(), samples.data(), count) != count ||
      sf_close(file.release()) != 0) {
    throw ToolError(ExitCode::kInternal, "the sound cannot be packed as FLAC");
  }
  return std::move(memory.bytes);
}

std::string base64(std::string_view bytes) {
  constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    unsigned group = 0;
    for (std::size_t k = 0; k < 3; ++k) {
      group = group << 8 | (i + k < bytes.size() ? static_cast<unsigned char>(bytes[i + k]) : 0U);
    }
    for (std::size_t k = 0; k < 4; ++k) {
      text += i + k <= bytes.size() ? kDigits[group >> (18 - 6 * k) & 63U] : '=';
    }
  }
  return text;
}

std::string pageText(const ReportPage& page) {
  std::vector<float> removed(page.before.size());
  std::transform(page.before.begin(), page.before.end(), page.after.begin(), removed.begin(),
                 std::minus<>());
  std::string scores(page.scores.size(), '\0');
  std::transform(page.scores.begin(), page.scores.end(), scores.begin(), [](float score) {
    return static_cast<char>(std::lrint(std::clamp(score, 0.0F, 1.0F) * 255.0F));
  });
  // A name may hold anything: no "</script>" gets out of the figures.
  std::string figures = page.figures.dump(1, ' ', false, nlohmann::json::error_handler_t::replace);
  for (std::size_t at = 0; (at = figures.find('<', at)) != std::string::npos; at += 6) {
    figures.replace(at, 1, "\\u003c");
  }
  const std::pair<const char*, std::string> places[] = {
      {"{{TITLE}}", escapedHtml(page.title)},
      {"{{FIGURES}}", figures},
      {"{{SCORES}}", base64(scores)},
      {"{{BEFORE}}", base64(flac(page.before, page.rate))},
      {"{{AFTER}}", base64(flac(page.after, page.rate))},
      {"{{REMOVED}}", base64(flac(removed, page.rate))}};
  std::string_view rest = kPageTemplate;
  std::string text;
  while (true) {
    const std::size_t open = rest.find("{{");
    text += rest.substr(0, open);
    if (open == std::string_view::npos) {
      return text;
    }
    rest.remove_prefix(open);
    const auto place = std::find_if(std::begin(places), std::end(places),
                                    [&](const auto& each) { return rest.starts_with(each.first); });
    text += place->second;
    rest.remove_prefix(std::strlen(place->first));
  }
}

}  // namespace ORVEL::TOOLS
