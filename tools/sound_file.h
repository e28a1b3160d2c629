#pragma once

#include <sndfile.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "tools/audio_stream.h"
#include "tools/pending_file.h"
#include "tools/unique_fd.h"

namespace ORVEL::TOOLS {

struct SndfileCloser {
  void operator()(SNDFILE* file) const noexcept { sf_close(file); }
};
using SndfileHandle = std::unique_ptr<SNDFILE, SndfileCloser>;

/** Reads any format that libsndfile knows. */
class SoundFileReader : public AudioSource {
 public:
  /** @throws ToolError (input) when the path is no regular file or holds no audio that can be read. */
  explicit SoundFileReader(const std::filesystem::path& path);

  AudioSpec spec() const override { return {info_.samplerate, info_.channels}; }
  std::optional<std::int64_t> claimedFrames() const override { return info_.frames; }
  std::size_t read(std::span<float> buffer) override;
  const std::string& name() const override { return name_; }

  /** libsndfile's format word of the file. */
  int format() const noexcept { return info_.format; }
  /** For copying titles and the speaker layout. */
  SNDFILE* handle() const noexcept { return file_.get(); }

 private:
  std::string name_;
  UniqueFd fd_;
  SF_INFO info_{};
  SndfileHandle file_;  // after fd_: closed first
  int bits_ = 0;
  std::vector<int> integers_;
};

/** Writes through a PendingFile. Integer encodings are rounded and clipped here. */
class SoundFileWriter : public AudioSink {
 public:
  /** @throws ToolError (output) */
  SoundFileWriter(const std::filesystem::path& path, int format, const AudioSpec& spec, bool force);

  /** Takes titles and the speaker layout over from an input file. Call before the first write. */
  void copyDescription(const SoundFileReader& input);
  void write(std::span<const float> frames) override;
  void commit() override;

 private:
  std::string name_;
  PendingFile pending_;
  SndfileHandle file_;  // after pending_: closed first
  int channels_;
  int bits_;
  std::vector<int> integers_;
};

}  // namespace ORVEL::TOOLS
