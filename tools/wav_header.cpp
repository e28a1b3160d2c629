#include "tools/wav_header.h"

#include <algorithm>

namespace ORVEL::TOOLS {
namespace {

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
