#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace ORVEL::TOOLS {

/** Shape of a stream of interleaved samples. */
struct AudioSpec {
  int sampleRate = 0;  ///< Hz
  int channels = 0;
};

/** Where audio comes from. Samples are floats with full scale +/-1, always finite. */
class AudioSource {
 public:
  virtual ~AudioSource() = default;
  virtual AudioSpec spec() const = 0;
  /** Length in samples per channel if it is known beforehand; a claim of the file, not a promise. */
  virtual std::optional<std::int64_t> claimedFrames() const = 0;
  /**
   * Reads up to buffer.size() / channels frames into the front of the buffer, fewer when no more are
   * there yet. @return frames read, 0 at the end. @throws ToolError when reading fails.
   */
  virtual std::size_t read(std::span<float> buffer) = 0;
  /** What messages call it. */
  virtual const std::string& name() const = 0;
};

/** Where audio goes. */
class AudioSink {
 public:
  virtual ~AudioSink() = default;
  /** Appends whole frames of interleaved samples. @throws ToolError when writing fails. */
  virtual void write(std::span<const float> frames) = 0;
  /** Completes the output; without this call nothing is left behind. @throws ToolError */
  virtual void commit() = 0;
};

}  // namespace ORVEL::TOOLS
