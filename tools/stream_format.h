// How samples lie in a stream: their encodings, and the WAV header that may stand in front of them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "tools/audio.h"

namespace ORVEL::TOOLS {

/** Encodings of samples in a stream, all little-endian. */
enum class SampleFormat { kU8, kS16, kS24, kS32, kF32, kF64 };

/** Names for --format, in the order of SampleFormat. */
inline constexpr std::array<const char*, 6> kSampleFormatNames = {"u8",    "s16le", "s24le",
                                                                  "s32le", "f32le", "f64le"};

SampleFormat sampleFormat(const std::string& name);  ///< @throws ToolError (kUsage)
std::size_t bytesPerSample(SampleFormat format) noexcept;
bool isFloat(SampleFormat format) noexcept;

/** libsndfile's encoding that keeps the same samples (no container set), and the way back: the format
 * that keeps the samples of an encoding best. */
int soundFileEncoding(SampleFormat format) noexcept;
SampleFormat nearestFormat(int soundFileFormat) noexcept;

/** Bits of an integer encoding of libsndfile's format word, 0 for float and lossy encodings. */
int pcmBits(int soundFileFormat) noexcept;

/** A sample of a stream to full scale +/-1, and back; integers are rounded and clipped. */
float decode(const unsigned char* bytes, SampleFormat format) noexcept;
void encode(float sample, SampleFormat format, unsigned char* bytes) noexcept;

/** A sample that arithmetic can be done with: NaN becomes 0, absurd levels a loud one. */
float tame(float sample) noexcept;
/** Integer sample, left-justified in 32 bits, to full scale +/-1. */
float fromInt32(std::int32_t sample) noexcept;
/** The nearest integer sample of that many bits, left-justified in 32; clips. */
std::int32_t toInt32(float sample, int bits) noexcept;

/** The front of a WAV file (RIFF or RF64) up to its samples. */
struct WavHeader {
  AudioSpec spec;
  /** Nothing for encodings that are no plain samples: laws, ADPCM, MP3, ... */
  std::optional<SampleFormat> format;
  std::size_t frameBytes = 0;
  std::uint64_t dataOffset = 0;
  /** Nothing where the writer did not know the length, as on a pipe. */
  std::optional<std::uint64_t> dataBytes;
};

/** Gives the next `size` bytes of a file; fewer at its end. */
using ReadBytes = std::function<std::string(std::size_t size)>;

/** True when a file that begins with these bytes (at least 12) is a WAV file. */
bool isWav(const std::string& head);

/**
 * Reads a WAV header from its first byte to the first sample.
 * @return nothing when there is none or it ends before the samples.
 */
std::optional<WavHeader> readWavHeader(const ReadBytes& read);

/**
 * The header of a stream whose length is not known.
 *
 * @param dataBytes what is known once it has ended; nothing: the largest value, which readers take as
 *        "until the end".
 */
std::string wavHeader(const AudioSpec& spec, SampleFormat format,
                      std::optional<std::uint64_t> dataBytes);

}  // namespace ORVEL::TOOLS
