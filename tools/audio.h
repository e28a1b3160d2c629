#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace ORVEL::TOOLS {

/** Shape of a stream of interleaved samples. */
struct AudioSpec {
  int sampleRate = 0;  ///< Hz
  int channels = 0;
};

/** What a file says besides its sound, in libsndfile's numbers. */
struct Description {
  std::vector<std::pair<int, std::string>> texts;  ///< SF_STR_...: title, artist, ...
  std::vector<int> speakers;                       ///< one for each channel, or none
};

/** Where audio comes from. Samples are floats with full scale +/-1, always finite. */
class AudioSource {
 public:
  virtual ~AudioSource() = default;
  virtual AudioSpec spec() const = 0;
  /** What messages call it. */
  virtual const std::string& name() const = 0;
  /** Length in samples per channel if it is known beforehand; a claim of the file, not a promise. */
  virtual std::optional<std::int64_t> claimedFrames() const = 0;
  /** libsndfile's format word: the container, or 0 for a stream, and the encoding. */
  virtual int format() const = 0;
  virtual Description description() const { return {}; }
  /**
   * Reads up to buffer.size() / channels frames into the front of the buffer, fewer when no more are
   * there yet. @return frames read, 0 at the end, be it early. @throws ToolError (kInterrupted)
   */
  virtual std::size_t read(std::span<float> buffer) = 0;
  /** After the end: what is missing ("cut short: ..."), or "". */
  virtual std::string shortfall() const { return {}; }
  /** After the end: what else the user should know, or "". */
  virtual std::string remark() const { return {}; }
};

/** Where audio goes. */
class AudioSink {
 public:
  virtual ~AudioSink() = default;
  /** Appends whole frames of interleaved samples. @throws ToolError (kOutput), ClosedPipe */
  virtual void write(std::span<const float> frames) = 0;
  /** Completes the output; without this call no file is left behind. @throws ToolError (kOutput) */
  virtual void commit() = 0;
};

/** How audio without a header is laid out, and what goes out on a pipe. */
struct StreamOptions {
  std::optional<int> rate;
  int channels = 1;
  std::optional<std::string> format;     ///< one of kSampleFormatNames
  std::optional<std::string> container;  ///< "raw" or "wav"
};

/** True for "-" and every other path that is not to become a file: descriptors, FIFOs, devices. */
bool isStream(const std::string& path);

/**
 * Opens a file of any format that libsndfile reads, or a stream: WAV where it begins with its header,
 * any other sound file after taking it in whole, else samples laid out as the options say.
 * @throws ToolError
 */
std::unique_ptr<AudioSource> openSource(const std::string& path, const StreamOptions& options);

/**
 * Opens a file whose extension names the container, or a stream.
 * @param force an existing file may be replaced.
 * @throws ToolError
 */
std::unique_ptr<AudioSink> openSink(const std::string& path, const AudioSource& source,
                                    const StreamOptions& options, bool force);

}  // namespace ORVEL::TOOLS
