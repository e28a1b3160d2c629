#include "tools/sound_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <mutex>
#include <utility>

#include "tools/sound_format.h"
#include "tools/stream_audio.h"
#include "tools/stream_format.h"
#include "tools/tool_error.h"

namespace ORVEL::TOOLS {
namespace {

// libsndfile puts some encoders' work space on the stack, by the size of the call.
constexpr std::size_t kFramesPerWrite = 4096;

// libsndfile keeps what it has to say about a file that it cannot open in one place for all threads.
std::mutex openMutex;

// libsndfile closes the descriptor it was given when it cannot open the file, whether it was told to
// or not. It gets one of its own, so that nobody closes a descriptor twice: another thread may
// have opened a file under the same number in between.
SndfileHandle openDuplicate(int descriptor, SF_INFO& info, const std::string& name) {
  UniqueFd own = duplicate(descriptor, ExitCode::kInput, name);
  const std::lock_guard lock(openMutex);
  SndfileHandle file(sf_open_fd(own.release(), SFM_READ, &info, SF_TRUE));
  // libsndfile takes a header that it could not read for one that says less.
  if (!file || sf_error(file.get()) == SF_ERR_SYSTEM) {
    throw ToolError(ExitCode::kInput,
                    name + ": no audio that can be read: " + sf_strerror(file.get()));
  }
  return file;
}

std::string readAt(int descriptor, off_t offset, std::size_t size) {
  std::string bytes(size, '\0');
  const ssize_t got = ::pread(descriptor, bytes.data(), size, offset);
  bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
  return bytes;
}

std::uint64_t bigEndian(const std::string& bytes, std::size_t at, std::size_t count) {
  std::uint64_t value = 0;
  for (std::size_t i = at; i < std::min(at + count, bytes.size()); ++i) {
    value = value << 8U | static_cast<unsigned char>(bytes[i]);
  }
  return value;
}

// Bytes that the header of a file promises and the file does not have.
std::uint64_t missingBytes(int descriptor, int container) {
  struct stat status {};
  if (::fstat(descriptor, &status) != 0) {
    return 0;
  }
  const auto size = static_cast<std::uint64_t>(status.st_size);
  std::uint64_t promised = 0;
  const std::string head = readAt(descriptor, 0, 24);
  if (container == SF_FORMAT_WAV || container == SF_FORMAT_WAVEX || container == SF_FORMAT_RF64) {
    off_t at = 0;
    const auto header = readWavHeader([&](std::size_t count) {
      std::string bytes = readAt(descriptor, at, count);
      at += static_cast<off_t>(bytes.size());
      return bytes;
    });
    promised = header && header->dataBytes ? header->dataOffset + *header->dataBytes : 0;
  } else if (container == SF_FORMAT_AIFF) {
    promised = bigEndian(head, 4, 4) + 8;
  } else if (container == SF_FORMAT_AU && head.starts_with(".snd")) {
    const std::uint64_t data = bigEndian(head, 8, 4);
    promised = data == 0xFFFFFFFF ? 0 : bigEndian(head, 4, 4) + data;
  } else if (container == SF_FORMAT_W64) {
    for (std::size_t i = std::min<std::size_t>(head.size(), 24); i > 16; --i) {
      promised = promised << 8U | static_cast<unsigned char>(head[i - 1]);
    }
  }
  return promised > size ? promised - size : 0;
}

// Without such a frame the length of an MP3 file is libsndfile's guess.
bool tellsLength(int descriptor) {
  constexpr std::size_t kFront = 8192;
  const std::string head = readAt(descriptor, 0, kFront);
  return head.find("Xing") != std::string::npos || head.find("Info") != std::string::npos;
}

}  // namespace

SoundFileReader::SoundFileReader(UniqueFd descriptor, std::string name)
    : name_(std::move(name)), fd_(std::move(descriptor)) {
  file_ = openDuplicate(fd_.get(), info_, name_);
  bits_ = pcmBits(info_.format);
}

std::optional<std::int64_t> SoundFileReader::claimedFrames() const {
  if (info_.frames == SF_COUNT_MAX) {
    return std::nullopt;
  }
  return info_.frames;
}

Description SoundFileReader::description() const {
  Description description;
  for (int kind = SF_STR_FIRST; kind <= SF_STR_LAST; ++kind) {
    if (const char* text = sf_get_string(file_.get(), kind); text != nullptr) {
      description.texts.emplace_back(kind, text);
    }
  }
  std::vector<int> speakers(static_cast<std::size_t>(info_.channels));
  if (sf_command(file_.get(), SFC_GET_CHANNEL_MAP_INFO, speakers.data(),
                 info_.channels * static_cast<int>(sizeof(int))) == SF_TRUE) {
    description.speakers = std::move(speakers);
  }
  return description;
}

std::size_t SoundFileReader::read(std::span<float> buffer) {
  const auto channels = static_cast<std::size_t>(info_.channels);
  const auto wanted = static_cast<sf_count_t>(buffer.size() / channels);
  sf_count_t got = 0;
  if (bits_ > 0) {
    integers_.resize(buffer.size());
    got = sf_readf_int(file_.get(), integers_.data(), wanted);
  } else {
    got = sf_readf_float(file_.get(), buffer.data(), wanted);
  }
  // Also where some frames came: the rest of the call's are lost.
  if (sf_error(file_.get()) != SF_ERR_NO_ERROR) {
    error_ = sf_strerror(file_.get());
  }
  if (got <= 0) {
    return 0;
  }
  const std::size_t samples = static_cast<std::size_t>(got) * channels;
  for (std::size_t i = 0; i < samples; ++i) {
    buffer[i] = bits_ > 0 ? fromInt32(integers_[i]) : tame(buffer[i]);
  }
  found_ += got;
  return static_cast<std::size_t>(got);
}

// The length that the file itself gives; nothing where it gives none.
std::optional<std::int64_t> SoundFileReader::promisedFrames() const {
  const int container = info_.format & SF_FORMAT_TYPEMASK;
  if (info_.frames == SF_COUNT_MAX || (container == SF_FORMAT_MPEG && !tellsLength(fd_.get()))) {
    return std::nullopt;
  }
  // libsndfile cuts its claim to what the file holds.
  const std::uint64_t missing = missingBytes(fd_.get(), container);
  if (missing == 0) {
    return info_.frames;
  }
  struct stat status {};
  ::fstat(fd_.get(), &status);
  const auto size = static_cast<std::uint64_t>(status.st_size);
  const std::uint64_t sampleBytes = bits_ > 0 ? static_cast<std::uint64_t>(bits_ / 8)
                                              : bytesPerSample(nearestFormat(info_.format));
  const bool plain = bits_ > 0 || (info_.format & SF_FORMAT_SUBMASK) == SF_FORMAT_FLOAT ||
                     (info_.format & SF_FORMAT_SUBMASK) == SF_FORMAT_DOUBLE;
  const std::uint64_t frameBytes = sampleBytes * static_cast<std::uint64_t>(info_.channels);
  const std::uint64_t frames = plain ? (missing + frameBytes - 1) / frameBytes
                                     : missing * static_cast<std::uint64_t>(found_) / size + 1;
  return info_.frames + static_cast<std::int64_t>(frames);
}

std::string SoundFileReader::shortfall() const {
  const bool endless = info_.frames == SF_COUNT_MAX;
  if (endless && (info_.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_OGG) {
    return "cut short: the stream's last page is missing; " +
           samplesText(found_, info_.samplerate) + " found";
  }
  const auto promised = promisedFrames();
  if (promised && found_ < *promised) {
    return "cut short: " + expectedAndFound(*promised, found_, info_.samplerate) +
           (error_.empty() ? "" : " (" + error_ + ")");
  }
  return error_.empty() ? "" : "reading failed: " + error_;
}

// What libsndfile calls to write into a descriptor. It keeps no error of a write that fails while it
// closes a file, and its text for all others is "System error": the true one is kept here.
sf_count_t WatchedOutput::length(void* self) {
  struct stat status {};
  return ::fstat(static_cast<WatchedOutput*>(self)->descriptor, &status) == 0 ? status.st_size : -1;
}
sf_count_t WatchedOutput::seek(sf_count_t offset, int whence, void* self) {
  return ::lseek(static_cast<WatchedOutput*>(self)->descriptor, offset, whence);
}
sf_count_t WatchedOutput::tell(void* self) { return seek(0, SEEK_CUR, self); }
sf_count_t WatchedOutput::read(void* data, sf_count_t count, void* self) {
  return ::read(static_cast<WatchedOutput*>(self)->descriptor, data,
                static_cast<std::size_t>(count));
}
sf_count_t WatchedOutput::write(const void* data, sf_count_t count, void* self) {
  auto& output = *static_cast<WatchedOutput*>(self);
  try {
    writeAll(output.descriptor, data, static_cast<std::size_t>(count), output.name);
    return count;
  } catch (...) {
    output.failure = std::current_exception();
    return 0;
  }
}

void WatchedOutput::throwFailure() const {
  if (failure) {
    std::rethrow_exception(failure);
  }
}

SoundFileWriter::SoundFileWriter(const std::filesystem::path& path, int format,
                                 const AudioSpec& spec, const Description& description, bool force)
    : name_(path.string()),
      pending_(path, force),
      output_{pending_.descriptor(), name_, nullptr},
      channels_(spec.channels),
      bits_(pcmBits(format)) {
  SF_INFO info{};
  info.format = format;
  info.samplerate = spec.sampleRate;
  info.channels = spec.channels;
  SF_VIRTUAL_IO calls{WatchedOutput::length, WatchedOutput::seek, WatchedOutput::read,
                      WatchedOutput::write, WatchedOutput::tell};
  {
    const std::lock_guard lock(openMutex);
    file_.reset(sf_open_virtual(&calls, SFM_WRITE, &info, &output_));
    output_.throwFailure();
    if (!file_) {
      throw ToolError(ExitCode::kOutput,
                      name_ + ": cannot write this format: " + sf_strerror(nullptr));
    }
  }
  sf_command(file_.get(), SFC_SET_CLIPPING, nullptr, SF_TRUE);
  // Containers that cannot hold a text or the layout refuse it, which is no loss worth an error.
  for (const auto& [kind, text] : description.texts) {
    sf_set_string(file_.get(), kind, text.c_str());
  }
  if (!description.speakers.empty()) {
    std::vector<int> speakers = description.speakers;
    sf_command(file_.get(), SFC_SET_CHANNEL_MAP_INFO, speakers.data(),
               static_cast<int>(speakers.size() * sizeof(int)));
  }
}

void SoundFileWriter::write(std::span<const float> frames) {
  const auto channels = static_cast<std::size_t>(channels_);
  while (!frames.empty()) {
    const std::size_t count = std::min(frames.size() / channels, kFramesPerWrite);
    const auto block = frames.first(count * channels);
    frames = frames.subspan(block.size());
    sf_count_t written = 0;
    if (bits_ > 0) {
      integers_.resize(block.size());
      std::transform(block.begin(), block.end(), integers_.begin(),
                     [this](float x) { return toInt32(x, bits_); });
      written = sf_writef_int(file_.get(), integers_.data(), static_cast<sf_count_t>(count));
    } else {
      written = sf_writef_float(file_.get(), block.data(), static_cast<sf_count_t>(count));
    }
    output_.throwFailure();
    if (written != static_cast<sf_count_t>(count)) {
      throw ToolError(ExitCode::kOutput, name_ + ": writing failed: " + sf_strerror(file_.get()));
    }
  }
}

void SoundFileWriter::commit() {
  // Closing writes the rest and the header; only then is the file complete.
  const int error = sf_close(file_.release());
  output_.throwFailure();
  if (error != 0) {
    throw ToolError(ExitCode::kOutput, name_ + ": closing failed: " + sf_error_number(error));
  }
  pending_.commit();
}

}  // namespace ORVEL::TOOLS
