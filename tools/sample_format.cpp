#include "tools/sample_format.h"

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

}  // namespace ORVEL::TOOLS
