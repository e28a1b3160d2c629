#include "tools/stream_format.h"

#include <sndfile.h>

#include <algorithm>
#include <bit>
#include <cmath>

#include "tools/tool_error.h"

namespace ORVEL::TOOLS {
namespace {

struct Row {
  SampleFormat format;
  std::size_t bytes;
  int encoding;
};

constexpr std::array kRows = {
    Row{SampleFormat::kU8, 1, SF_FORMAT_PCM_U8},  Row{SampleFormat::kS16, 2, SF_FORMAT_PCM_16},
    Row{SampleFormat::kS24, 3, SF_FORMAT_PCM_24}, Row{SampleFormat::kS32, 4, SF_FORMAT_PCM_32},
    Row{SampleFormat::kF32, 4, SF_FORMAT_FLOAT},  Row{SampleFormat::kF64, 8, SF_FORMAT_DOUBLE},
};

const Row& row(SampleFormat format) noexcept { return kRows[static_cast<std::size_t>(format)]; }

constexpr std::uint32_t kPcm = 1;
constexpr std::uint32_t kFloat = 3;
constexpr std::uint32_t kExtensible = 0xFFFE;
constexpr std::uint32_t kUnknownSize = 0xFFFFFFFF;

std::uint64_t little(const std::string& bytes, std::size_t at, std::size_t count) {
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < count; ++i) {
    value |= std::uint64_t{static_cast<unsigned char>(bytes[at + i])} << (8 * i);
  }
  return value;
}

void append(std::string& bytes, std::uint64_t value, int count) {
  for (int i = 0; i < count; ++i) {
    bytes.push_back(static_cast<char>((value >> (8 * i)) & 0xFFU));
  }
}

std::optional<SampleFormat> plainFormat(std::uint64_t tag, std::uint64_t bits) {
  if (tag == kFloat) {
    return bits == 32   ? std::optional(SampleFormat::kF32)
           : bits == 64 ? std::optional(SampleFormat::kF64)
                        : std::nullopt;
  }
  constexpr SampleFormat kIntegers[] = {SampleFormat::kU8, SampleFormat::kS16, SampleFormat::kS24,
                                        SampleFormat::kS32};
  if (tag != kPcm || bits % 8 != 0 || bits < 8 || bits > 32) {
    return std::nullopt;
  }
  return kIntegers[bits / 8 - 1];
}

// False when the chunk is too short.
bool readFormat(const std::string& chunk, WavHeader& header) {
  if (chunk.size() < 16) {
    return false;
  }
  std::uint64_t tag = little(chunk, 0, 2);
  if (tag == kExtensible && chunk.size() >= 26) {
    tag = little(chunk, 24, 2);
  }
  constexpr std::uint64_t kMostRate = 1U << 30U;
  header.spec.channels = static_cast<int>(little(chunk, 2, 2));
  header.spec.sampleRate = static_cast<int>(std::min(little(chunk, 4, 4), kMostRate));
  header.frameBytes = little(chunk, 12, 2);
  header.format = plainFormat(tag, little(chunk, 14, 2));
  const std::size_t channels = static_cast<std::size_t>(header.spec.channels);
  if (header.format && header.frameBytes != bytesPerSample(*header.format) * channels) {
    header.format.reset();
  }
  return header.frameBytes > 0 && channels > 0;
}

}  // namespace

SampleFormat sampleFormat(const std::string& name) {
  const auto found = std::find(kSampleFormatNames.begin(), kSampleFormatNames.end(), name);
  if (found == kSampleFormatNames.end()) {
    throw ToolError(ExitCode::kUsage, "--format: '" + name + "' is not a format of samples");
  }
  return static_cast<SampleFormat>(found - kSampleFormatNames.begin());
}

std::size_t bytesPerSample(SampleFormat format) noexcept { return row(format).bytes; }

bool isFloat(SampleFormat format) noexcept {
  return format == SampleFormat::kF32 || format == SampleFormat::kF64;
}

int soundFileEncoding(SampleFormat format) noexcept { return row(format).encoding; }

SampleFormat nearestFormat(int soundFileFormat) noexcept {
  const int encoding = soundFileFormat & SF_FORMAT_SUBMASK;
  for (const Row& candidate : kRows) {
    if (candidate.encoding == encoding) {
      return candidate.format;
    }
  }
  const int bits = pcmBits(soundFileFormat);
  return bits > 24 ? SampleFormat::kS32 : bits > 16 ? SampleFormat::kS24 : SampleFormat::kS16;
}

int pcmBits(int soundFileFormat) noexcept {
  switch (soundFileFormat & SF_FORMAT_SUBMASK) {
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

float decode(const unsigned char* bytes, SampleFormat format) noexcept {
  const std::size_t size = bytesPerSample(format);
  std::uint64_t word = 0;
  for (std::size_t i = 0; i < size; ++i) {
    word |= std::uint64_t{bytes[i]} << (8 * i);
  }
  if (format == SampleFormat::kF64) {
    return tame(static_cast<float>(std::bit_cast<double>(word)));
  }
  const auto bits = static_cast<std::uint32_t>(word);
  if (format == SampleFormat::kF32) {
    return tame(std::bit_cast<float>(bits));
  }
  const std::uint32_t middle = format == SampleFormat::kU8 ? 0x80000000U : 0U;
  // Shifted in 64 bits, where every size is in range; the low half is the sample.
  const auto high = static_cast<std::uint32_t>(word << (32 - 8 * size));
  return fromInt32(static_cast<std::int32_t>(high ^ middle));
}

void encode(float sample, SampleFormat format, unsigned char* bytes) noexcept {
  const std::size_t size = bytesPerSample(format);
  std::uint64_t word = 0;
  if (format == SampleFormat::kF64) {
    word = std::bit_cast<std::uint64_t>(static_cast<double>(sample));
  } else if (format == SampleFormat::kF32) {
    word = std::bit_cast<std::uint32_t>(sample);
  } else {
    const int bits = static_cast<int>(8 * size);
    const std::uint32_t middle = format == SampleFormat::kU8 ? 0x80000000U : 0U;
    word = (static_cast<std::uint32_t>(toInt32(sample, bits)) ^ middle) >> (32 - bits);
  }
  for (std::size_t i = 0; i < size; ++i) {
    bytes[i] = static_cast<unsigned char>((word >> (8 * i)) & 0xFFU);
  }
}

float tame(float sample) noexcept {
  constexpr float kLoudest = 16.0F;
  return std::isfinite(sample) ? std::clamp(sample, -kLoudest, kLoudest) : 0.0F;
}

float fromInt32(std::int32_t sample) noexcept {
  return static_cast<float>(static_cast<double>(sample) * 0x1p-31);
}

std::int32_t toInt32(float sample, int bits) noexcept {
  const double scale = std::ldexp(1.0, bits - 1);
  const double value =
      std::clamp(std::nearbyint(static_cast<double>(sample) * scale), -scale, scale - 1.0);
  return static_cast<std::int32_t>(static_cast<std::int64_t>(value) *
                                   (std::int64_t{1} << (32 - bits)));
}

bool isWav(const std::string& head) {
  return head.size() >= 12 && (head.starts_with("RIFF") || head.starts_with("RF64")) &&
         head.compare(8, 4, "WAVE") == 0;
}

std::optional<WavHeader> readWavHeader(const ReadBytes& read) {
  const std::string head = read(12);
  if (!isWav(head)) {
    return std::nullopt;
  }
  WavHeader header;
  header.dataOffset = 12;
  bool hasFormat = false;
  std::optional<std::uint64_t> longSize;  // of RF64
  for (;;) {
    const std::string chunk = read(8);
    if (chunk.size() < 8) {
      return std::nullopt;
    }
    header.dataOffset += 8;
    const std::string id = chunk.substr(0, 4);
    const std::uint64_t size = little(chunk, 4, 4);
    if (id == "data") {
      // Writers that do not know the length leave the largest value, one near 2 GiB, or 0.
      constexpr std::uint64_t kLongest = 0x7FFF0000;
      const std::uint64_t whole = little(head, 4, 4);
      const bool open = size >= kLongest || (size == 0 && (whole == 0 || whole == kUnknownSize));
      header.dataBytes = longSize && size == kUnknownSize ? longSize
                         : open                           ? std::nullopt
                                                          : std::optional(size);
      return hasFormat ? std::optional(header) : std::nullopt;
    }
    // Chunks before the samples are small; a damaged size must not fill the memory.
    constexpr std::uint64_t kMostBytes = 1U << 24U;
    const std::uint64_t padded = size + (size & 1U);
    const std::string body = padded <= kMostBytes ? read(padded) : std::string();
    if (body.size() < padded) {
      return std::nullopt;
    }
    header.dataOffset += padded;
    if (id == "fmt ") {
      if (!readFormat(body, header)) {
        return std::nullopt;
      }
      hasFormat = true;
    } else if (id == "ds64" && size >= 16) {
      longSize = little(body, 8, 8);
    }
  }
}

std::string wavHeader(const AudioSpec& spec, SampleFormat format,
                      std::optional<std::uint64_t> dataBytes) {
  const std::uint64_t sampleBytes = bytesPerSample(format);
  const std::uint64_t frameBytes = sampleBytes * static_cast<std::uint64_t>(spec.channels);
  const auto rate = static_cast<std::uint64_t>(spec.sampleRate);
  constexpr std::uint64_t kAround = 36;  // bytes that the outer size counts beside the samples
  const bool fits = dataBytes && *dataBytes <= kUnknownSize - kAround;
  std::string bytes = "RIFF";
  append(bytes, fits ? *dataBytes + kAround : kUnknownSize, 4);
  bytes += "WAVEfmt ";
  append(bytes, 16, 4);
  append(bytes, isFloat(format) ? kFloat : kPcm, 2);
  append(bytes, static_cast<std::uint64_t>(spec.channels), 2);
  append(bytes, rate, 4);
  append(bytes, rate * frameBytes, 4);
  append(bytes, frameBytes, 2);
  append(bytes, 8 * sampleBytes, 2);
  bytes += "data";
  append(bytes, fits ? *dataBytes : kUnknownSize, 4);
  return bytes;
}

}  // namespace ORVEL::TOOLS
