#include "tools/raw_io.h"

#include <sndfile.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdint>
#include <system_error>
#include <utility>

#include "tools/interrupt.h"
#include "tools/sample_codec.h"
#include "tools/tool_error.h"

namespace ORVEL::TOOLS {
namespace {

std::uint32_t littleEndian(const unsigned char* bytes, std::size_t count) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < count; ++i)
    value |= std::uint32_t{bytes[i]} << (8 * i);
  return value;
}

float decode(const unsigned char* bytes, RawFormat format) {
  const std::size_t size = bytesPerSample(format);
  const std::uint32_t word = littleEndian(bytes, size);
  if (format == RawFormat::f32) return tame(std::bit_cast<float>(word));
  return fromInt32(static_cast<std::int32_t>(word << (32 - 8 * size)));
}

void encode(float x, RawFormat format, unsigned char* bytes) {
  const std::size_t size = bytesPerSample(format);
  const int bits = static_cast<int>(8 * size);
  const std::uint32_t word = format == RawFormat::f32
                                 ? std::bit_cast<std::uint32_t>(x)
                                 : static_cast<std::uint32_t>(toInt32(x, bits)) >> (32 - bits);
  for (std::size_t i = 0; i < size; ++i) {
    bytes[i] = static_cast<unsigned char>((word >> (8 * i)) & 0xFFU);
  }
}

}  // namespace

RawFormat rawFormat(const std::string& name) {
  const auto found = std::find(kRawFormatNames.begin(), kRawFormatNames.end(), name);
  if (found == kRawFormatNames.end()) {
    throw ToolError(ExitCode::usage,
                    "--format: '" + name + "' is none of s16le, s24le, s32le, f32le");
  }
  return static_cast<RawFormat>(found - kRawFormatNames.begin());
}

std::size_t bytesPerSample(RawFormat format) {
  switch (format) {
    case RawFormat::s16:
      return 2;
    case RawFormat::s24:
      return 3;
    default:
      return 4;
  }
}

int soundFileEncoding(RawFormat format) {
  switch (format) {
    case RawFormat::s16:
      return SF_FORMAT_PCM_16;
    case RawFormat::s24:
      return SF_FORMAT_PCM_24;
    case RawFormat::s32:
      return SF_FORMAT_PCM_32;
    default:
      return SF_FORMAT_FLOAT;
  }
}

RawReader::RawReader(int descriptor, std::string name, AudioSpec spec, RawFormat format)
    : descriptor_(descriptor),
      name_(std::move(name)),
      spec_(spec),
      format_(format),
      frameBytes_(bytesPerSample(format) * static_cast<std::size_t>(spec.channels)) {}

std::size_t RawReader::read(std::span<float> buffer) {
  const auto channels = static_cast<std::size_t>(spec_.channels);
  bytes_.resize(std::max(buffer.size() / channels * frameBytes_, held_));
  while (held_ < frameBytes_) {
    const ssize_t got = ::read(descriptor_, bytes_.data() + held_, bytes_.size() - held_);
    if (got == 0) return 0;
    if (got < 0) {
      if (errno == EINTR) {
        throwIfInterrupted();
        continue;
      }
      throw ToolError(ExitCode::input,
                      name_ + ": reading failed: " + std::generic_category().message(errno));
    }
    held_ += static_cast<std::size_t>(got);
  }
  const std::size_t frames = held_ / frameBytes_;
  const std::size_t size = bytesPerSample(format_);
  for (std::size_t i = 0; i < frames * channels; ++i)
    buffer[i] = decode(&bytes_[i * size], format_);
  const auto used = static_cast<std::ptrdiff_t>(frames * frameBytes_);
  std::copy(bytes_.begin() + used, bytes_.begin() + static_cast<std::ptrdiff_t>(held_),
            bytes_.begin());
  held_ -= static_cast<std::size_t>(used);
  return frames;
}

RawWriter::RawWriter(int descriptor, std::string name, RawFormat format)
    : descriptor_(descriptor), name_(std::move(name)), format_(format) {}

void RawWriter::write(std::span<const float> frames) {
  const std::size_t size = bytesPerSample(format_);
  bytes_.resize(frames.size() * size);
  for (std::size_t i = 0; i < frames.size(); ++i)
    encode(frames[i], format_, &bytes_[i * size]);
  std::size_t done = 0;
  while (done < bytes_.size()) {
    const ssize_t wrote = ::write(descriptor_, bytes_.data() + done, bytes_.size() - done);
    if (wrote < 0) {
      if (errno == EINTR) {
        throwIfInterrupted();
        continue;
      }
      throw ToolError(ExitCode::output,
                      name_ + ": writing failed: " + std::generic_category().message(errno));
    }
    done += static_cast<std::size_t>(wrote);
  }
}

}  // namespace ORVEL::TOOLS
