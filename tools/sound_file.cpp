#include "tools/sound_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <mutex>
#include <system_error>

#include "tools/sample_codec.h"
#include "tools/sound_format.h"
#include "tools/tool_error.h"

namespace ORVEL::TOOLS {
namespace {

// Far below and above this no converter of the field works; a damaged header says anything.
constexpr int kLowestRate = 1000;
constexpr int kHighestRate = 768000;

// libsndfile puts some encoders' work space on the stack, by the size of the call.
constexpr std::size_t kFramesPerWrite = 4096;

[[noreturn]] void failInput(const std::string& name, const std::string& reason) {
  throw ToolError(ExitCode::input, name + ": " + reason);
}

// libsndfile keeps what it has to say about a file that it cannot open in one place for all threads.
std::mutex openMutex;

// libsndfile closes the descriptor it was given when it cannot open the file, whether it was told to
// or not. It gets one of its own, so that nobody closes a descriptor twice: another thread may
// have opened a file under the same number in between. `reason` is set where null is returned.
SNDFILE* openDuplicate(int descriptor, int mode, SF_INFO& info, std::string& reason) {
  const int own = ::fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
  if (own < 0) {
    reason = std::generic_category().message(errno);
    return nullptr;
  }
  const std::lock_guard lock(openMutex);
  SNDFILE* file = sf_open_fd(own, mode, &info, SF_TRUE);
  if (file == nullptr) reason = sf_strerror(nullptr);
  return file;
}

}  // namespace

SoundFileReader::SoundFileReader(const std::filesystem::path& path) : name_(path.string()) {
  // Non-blocking, so that a pipe nobody writes to is refused instead of waited for.
  fd_.reset(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!fd_) failInput(name_, "cannot open: " + std::generic_category().message(errno));
  struct stat status {};
  if (::fstat(fd_.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
    failInput(name_, S_ISDIR(status.st_mode) ? "is a directory" : "is not a regular file");
  }
  std::string reason;
  file_.reset(openDuplicate(fd_.get(), SFM_READ, info_, reason));
  if (!file_) failInput(name_, "no audio that can be read: " + reason);
  if (info_.channels < 1) failInput(name_, "has no channels");
  if (info_.samplerate < kLowestRate || info_.samplerate > kHighestRate) {
    failInput(name_, "sample rate " + std::to_string(info_.samplerate) + " Hz is not within " +
                         std::to_string(kLowestRate) + " to " + std::to_string(kHighestRate) +
                         " Hz");
  }
  bits_ = pcmBits(info_.format);
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
  if (got <= 0) {
    if (sf_error(file_.get()) != SF_ERR_NO_ERROR) {
      failInput(name_, std::string("reading failed: ") + sf_strerror(file_.get()));
    }
    return 0;
  }
  const std::size_t samples = static_cast<std::size_t>(got) * channels;
  if (bits_ > 0) {
    for (std::size_t i = 0; i < samples; ++i)
      buffer[i] = fromInt32(integers_[i]);
  } else {
    for (std::size_t i = 0; i < samples; ++i)
      buffer[i] = tame(buffer[i]);
  }
  return static_cast<std::size_t>(got);
}

SoundFileWriter::SoundFileWriter(const std::filesystem::path& path, int format,
                                 const AudioSpec& spec, bool force)
    : name_(path.string()),
      pending_(path, force),
      channels_(spec.channels),
      bits_(pcmBits(format)) {
  SF_INFO info{};
  info.format = format;
  info.samplerate = spec.sampleRate;
  info.channels = spec.channels;
  std::string reason;
  file_.reset(openDuplicate(pending_.descriptor(), SFM_WRITE, info, reason));
  if (!file_) throw ToolError(ExitCode::output, name_ + ": cannot write this format: " + reason);
  sf_command(file_.get(), SFC_SET_CLIPPING, nullptr, SF_TRUE);
}

void SoundFileWriter::copyDescription(const SoundFileReader& input) {
  for (int kind = SF_STR_FIRST; kind <= SF_STR_LAST; ++kind) {
    const char* text = sf_get_string(input.handle(), kind);
    // Containers without room for a text refuse it, which is no loss worth an error.
    if (text != nullptr) sf_set_string(file_.get(), kind, text);
  }
  std::vector<int> layout(static_cast<std::size_t>(channels_));
  const int bytes = channels_ * static_cast<int>(sizeof(int));
  if (sf_command(input.handle(), SFC_GET_CHANNEL_MAP_INFO, layout.data(), bytes) == SF_TRUE) {
    sf_command(file_.get(), SFC_SET_CHANNEL_MAP_INFO, layout.data(), bytes);
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
    if (written != static_cast<sf_count_t>(count)) {
      throw ToolError(ExitCode::output, name_ + ": writing failed: " + sf_strerror(file_.get()));
    }
  }
}

void SoundFileWriter::commit() {
  // Closing writes the rest and the header; only then is the file complete.
  if (sf_close(file_.release()) != 0) {
    throw ToolError(ExitCode::output, name_ + ": closing failed");
  }
  pending_.commit();
}

}  // namespace ORVEL::TOOLS
