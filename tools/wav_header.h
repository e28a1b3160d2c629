#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "tools/audio.h"
#include "tools/sample_format.h"

namespace ORVEL::TOOLS {

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
