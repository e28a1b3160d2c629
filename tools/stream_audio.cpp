#include "tools/stream_audio.h"

#include <fcntl.h>

#include <algorithm>
#include <utility>

#include "tools/stream_format.h"
#include "tools/tool_error.h"

namespace ORVEL::TOOLS {

std::string samplesText(std::int64_t count, int sampleRate) {
  return formatText("%lld samples (%.2f s)", static_cast<long long>(count),
                    static_cast<double>(count) / sampleRate);
}

std::string expectedAndFound(std::int64_t expected, std::int64_t found, int sampleRate) {
  return samplesText(expected, sampleRate) + " expected, " + samplesText(found, sampleRate) +
         " found";
}

StreamReader::StreamReader(UniqueFd descriptor, std::string name, AudioSpec spec,
                           SampleFormat format, std::string before,
                           std::optional<std::uint64_t> length)
    : descriptor_(std::move(descriptor)),
      name_(std::move(name)),
      spec_(spec),
      format_(format),
      frameBytes_(bytesPerSample(format) * static_cast<std::size_t>(spec.channels)),
      length_(length),
      before_(std::move(before)) {}

std::optional<std::int64_t> StreamReader::claimedFrames() const {
  if (!length_) {
    return std::nullopt;
  }
  return static_cast<std::int64_t>(*length_ / frameBytes_);
}

// Adds up to `most` bytes behind those held; gives how many.
std::size_t StreamReader::fetch(std::size_t most) {
  if (length_) {
    most = static_cast<std::size_t>(std::min<std::uint64_t>(most, *length_ - fetched_));
  }
  std::size_t got = 0;
  if (!before_.empty()) {
    got = std::min(most, before_.size());
    std::copy_n(before_.begin(), got, bytes_.begin() + static_cast<std::ptrdiff_t>(held_));
    before_.erase(0, got);
  } else if (most > 0) {
    try {
      got = readSome(descriptor_.get(), bytes_.data() + held_, most, name_);
    } catch (const ToolError& error) {
      if (error.code() == ExitCode::kInterrupted) {
        throw;
      }
      error_ = error.what();
    }
  }
  held_ += got;
  fetched_ += got;
  return got;
}

std::size_t StreamReader::read(std::span<float> buffer) {
  const auto channels = static_cast<std::size_t>(spec_.channels);
  bytes_.resize(std::max(buffer.size() / channels * frameBytes_, held_));
  while (held_ < frameBytes_) {
    if (fetch(bytes_.size() - held_) == 0) {
      return 0;
    }
  }
  const std::size_t frames = held_ / frameBytes_;
  const std::size_t size = bytesPerSample(format_);
  for (std::size_t i = 0; i < frames * channels; ++i) {
    buffer[i] = decode(&bytes_[i * size], format_);
  }
  const auto used = static_cast<std::ptrdiff_t>(frames * frameBytes_);
  std::copy(bytes_.begin() + used, bytes_.begin() + static_cast<std::ptrdiff_t>(held_),
            bytes_.begin());
  held_ -= static_cast<std::size_t>(used);
  return frames;
}

std::string StreamReader::shortfall() const {
  if (!error_.empty()) {
    return error_;
  }
  if (!length_ || fetched_ >= *length_) {
    return {};
  }
  return "cut short: " + expectedAndFound(*claimedFrames(),
                                          static_cast<std::int64_t>(fetched_ / frameBytes_),
                                          spec_.sampleRate);
}

std::string StreamReader::remark() const {
  if (held_ == 0) {
    return {};
  }
  return std::to_string(held_) + " bytes at the end made no whole sample and were dropped";
}

StreamWriter::StreamWriter(UniqueFd descriptor, std::string name, AudioSpec spec,
                           SampleFormat format, Header header)
    : descriptor_(std::move(descriptor)),
      name_(std::move(name)),
      spec_(spec),
      format_(format),
      header_(header) {
  if (header_ == Header::kWav) {
    const std::string front = wavHeader(spec_, format_, std::nullopt);
    writeAll(descriptor_.get(), front.data(), front.size(), name_);
  }
}

void StreamWriter::write(std::span<const float> frames) {
  const std::size_t size = bytesPerSample(format_);
  bytes_.resize(frames.size() * size);
  for (std::size_t i = 0; i < frames.size(); ++i) {
    encode(frames[i], format_, &bytes_[i * size]);
  }
  writeAll(descriptor_.get(), bytes_.data(), bytes_.size(), name_);
  dataBytes_ += bytes_.size();
}

void StreamWriter::commit() {
  if (header_ == Header::kWav) {
    completeHeader();
  }
  checkWritten(descriptor_.get(), name_);
}

void StreamWriter::completeHeader() {
  const int flags = ::fcntl(descriptor_.get(), F_GETFL);
  const off_t end = ::lseek(descriptor_.get(), 0, SEEK_CUR);
  const std::string front = wavHeader(spec_, format_, dataBytes_);
  const off_t written = static_cast<off_t>(dataBytes_ + front.size());
  if (end < written || flags == -1 || (flags & O_APPEND) != 0) {
    return;  // a pipe, or a place that cannot be gone back to: the header says "until the end"
  }
  if (::pwrite(descriptor_.get(), front.data(), front.size(), end - written) !=
      static_cast<ssize_t>(front.size())) {
    throw ToolError(ExitCode::kOutput,
                    name_ + ": the header cannot be completed: " + systemMessage(errno));
  }
}

}  // namespace ORVEL::TOOLS
