#pragma once

#include <sndfile.h>

#include <exception>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "tools/audio.h"
#include "tools/descriptor.h"
#include "tools/pending_file.h"

namespace ORVEL::TOOLS {

struct SndfileCloser {
  void operator()(SNDFILE* file) const noexcept { sf_close(file); }
};
using SndfileHandle = std::unique_ptr<SNDFILE, SndfileCloser>;

/** Reads any format that libsndfile knows. */
class SoundFileReader : public AudioSource {
 public:
  /**
   * @param descriptor of a regular file, read from its first byte.
   * @throws ToolError (kInput) when it holds no audio that can be read.
   */
  SoundFileReader(UniqueFd descriptor, std::string name);

  AudioSpec spec() const override { return {info_.samplerate, info_.channels}; }
  const std::string& name() const override { return name_; }
  std::optional<std::int64_t> claimedFrames() const override;
  int format() const override { return info_.format; }
  Description description() const override;
  std::size_t read(std::span<float> buffer) override;
  std::string shortfall() const override;

 private:
  std::optional<std::int64_t> promisedFrames() const;

  std::string name_;
  UniqueFd fd_;
  SF_INFO info_{};
  SndfileHandle file_;  // after fd_: closed first
  int bits_ = 0;
  std::int64_t found_ = 0;
  std::string error_;
  std::vector<int> integers_;
};

/** A descriptor that libsndfile writes into, and the first thing that went wrong there. */
struct WatchedOutput {
  int descriptor;
  std::string name;
  std::exception_ptr failure;

  static sf_count_t length(void* self);
  static sf_count_t seek(sf_count_t offset, int whence, void* self);
  static sf_count_t read(void* data, sf_count_t count, void* self);
  static sf_count_t write(const void* data, sf_count_t count, void* self);
  static sf_count_t tell(void* self);
  /** @throws ToolError (kOutput, kInterrupted), ClosedPipe */
  void throwFailure() const;
};

/** Writes through a PendingFile. Integer encodings are rounded and clipped here. */
class SoundFileWriter : public AudioSink {
 public:
  /** @throws ToolError (kOutput) */
  SoundFileWriter(const std::filesystem::path& path, int format, const AudioSpec& spec,
                  const Description& description, bool force);

  void write(std::span<const float> frames) override;
  void commit() override;

 private:
  std::string name_;
  PendingFile pending_;
  WatchedOutput output_;
  SndfileHandle file_;  // after these two: closed first
  int channels_;
  int bits_;
  std::vector<int> integers_;
};

}  // namespace ORVEL::TOOLS
