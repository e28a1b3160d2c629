#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

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

}  // namespace ORVEL::TOOLS
