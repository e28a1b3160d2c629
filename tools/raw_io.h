#pragma once

#include <array>
#include <string>
#include <vector>

#include "tools/audio_stream.h"

namespace ORVEL::TOOLS {

/** Headerless sample formats, all little-endian. */
enum class RawFormat { s16, s24, s32, f32 };

/** "s16le", "s24le", "s32le", "f32le". */
inline constexpr std::array<const char*, 4> kRawFormatNames = {"s16le", "s24le", "s32le", "f32le"};

RawFormat rawFormat(const std::string& name);  ///< @throws ToolError (usage)
std::size_t bytesPerSample(RawFormat format);

/** libsndfile's encoding that keeps the same samples (no container set). */
int soundFileEncoding(RawFormat format);

/** Raw samples from a descriptor, handed on as they arrive. Does not own the descriptor. */
class RawReader : public AudioSource {
 public:
  RawReader(int descriptor, std::string name, AudioSpec spec, RawFormat format);

  AudioSpec spec() const override { return spec_; }
  std::optional<std::int64_t> claimedFrames() const override { return std::nullopt; }
  std::size_t read(std::span<float> buffer) override;
  const std::string& name() const override { return name_; }

  /** Bytes left over at the end that made no whole frame. */
  std::size_t leftover() const noexcept { return held_; }

 private:
  int descriptor_;
  std::string name_;
  AudioSpec spec_;
  RawFormat format_;
  std::size_t frameBytes_;
  std::vector<unsigned char> bytes_;
  std::size_t held_ = 0;  // bytes of an unfinished frame at the front of bytes_
};

/** Raw samples to a descriptor, written at once. Does not own the descriptor. */
class RawWriter : public AudioSink {
 public:
  RawWriter(int descriptor, std::string name, RawFormat format);

  void write(std::span<const float> frames) override;
  void commit() override {}

 private:
  int descriptor_;
  std::string name_;
  RawFormat format_;
  std::vector<unsigned char> bytes_;
};

}  // namespace ORVEL::TOOLS
