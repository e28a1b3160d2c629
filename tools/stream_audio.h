#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/audio.h"
#include "tools/descriptor.h"
#include "tools/stream_format.h"

namespace ORVEL::TOOLS {

/** Plain samples from a descriptor, handed on as they arrive. */
class StreamReader : public AudioSource {
 public:
  /**
   * @param before bytes of the samples that have been read already.
   * @param length bytes of samples that a header promises; nothing: until the end.
   */
  StreamReader(UniqueFd descriptor, std::string name, AudioSpec spec, SampleFormat format,
               std::string before = {}, std::optional<std::uint64_t> length = {});

  AudioSpec spec() const override { return spec_; }
  const std::string& name() const override { return name_; }
  std::optional<std::int64_t> claimedFrames() const override;
  int format() const override { return soundFileEncoding(format_); }
  std::size_t read(std::span<float> buffer) override;
  std::string shortfall() const override;
  std::string remark() const override;

 private:
  std::size_t fetch(std::size_t most);

  UniqueFd descriptor_;
  std::string name_;
  AudioSpec spec_;
  SampleFormat format_;
  std::size_t frameBytes_;
  std::optional<std::uint64_t> length_;
  std::string before_;
  std::uint64_t fetched_ = 0;
  std::vector<unsigned char> bytes_;
  std::size_t held_ = 0;  // bytes of an unfinished frame at the front of bytes_
  std::string error_;
};

/** Plain samples to a descriptor, written at once, with a WAV header in front or without. */
class StreamWriter : public AudioSink {
 public:
  enum class Header { kNone, kWav };
  StreamWriter(UniqueFd descriptor, std::string name, AudioSpec spec, SampleFormat format,
               Header header);

  void write(std::span<const float> frames) override;
  /** Where the output is a file after all, the header gets its length. */
  void commit() override;

 private:
  void completeHeader();

  UniqueFd descriptor_;
  std::string name_;
  AudioSpec spec_;
  SampleFormat format_;
  Header header_;
  std::uint64_t dataBytes_ = 0;
  std::vector<unsigned char> bytes_;
};

/** "48000 samples (3.00 s) expected, 28672 (1.79 s) found" */
std::string expectedAndFound(std::int64_t expected, std::int64_t found, int sampleRate);
/** "28672 samples (1.79 s)" */
std::string samplesText(std::int64_t count, int sampleRate);

}  // namespace ORVEL::TOOLS
