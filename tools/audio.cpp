#include "tools/audio.h"

#include <fcntl.h>
#include <sndfile.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "tools/sound_file.h"
#include "tools/sound_format.h"
#include "tools/stream_audio.h"
#include "tools/stream_format.h"
#include "tools/tool_error.h"

namespace ORVEL::TOOLS {
namespace {

constexpr std::size_t kHeadBytes = 12;  // enough to know a sound file by
constexpr const char* kUsualFormat = "s16le";

// Samples without a header, in a file that appears when it is complete.
class SampleFileWriter : public AudioSink {
 public:
  SampleFileWriter(const std::string& path, const AudioSpec& spec, const StreamOptions& options,
                   bool force)
      : pending_(path, force),
        samples_(duplicate(pending_.descriptor(), ExitCode::kOutput, path), path, spec,
                 sampleFormat(options.format.value_or(kUsualFormat)), StreamWriter::Header::kNone) {
  }
  void write(std::span<const float> frames) override { samples_.write(frames); }
  void commit() override { pending_.commit(); }

 private:
  PendingFile pending_;
  StreamWriter samples_;
};

[[noreturn]] void failInput(const std::string& name, const std::string& reason) {
  throw ToolError(ExitCode::kInput, name + ": " + reason);
}

void requireSpec(const std::string& name, const AudioSpec& spec) {
  // Far below and above this no converter of the field works; a damaged header says anything.
  constexpr int kLowestRate = 1000;
  constexpr int kHighestRate = 768000;
  if (spec.channels < 1) {
    failInput(name, "has no channels");
  }
  if (spec.sampleRate < kLowestRate || spec.sampleRate > kHighestRate) {
    failInput(name, "sample rate " + std::to_string(spec.sampleRate) + " Hz is not within " +
                        std::to_string(kLowestRate) + " to " + std::to_string(kHighestRate) +
                        " Hz");
  }
}

// The first bytes of a pipe, kept for whoever reads it next.
class Front {
 public:
  Front(int descriptor, const std::string& name) : descriptor_(descriptor), name_(name) {}

  // The next bytes; fewer at the end.
  std::string read(std::size_t size) {
    fill(at_ + size);
    std::string bytes = bytes_.substr(at_, size);
    at_ += bytes.size();
    return bytes;
  }
  const std::string& all() const { return bytes_; }
  std::string head() {
    fill(kHeadBytes);
    return bytes_.substr(0, kHeadBytes);
  }

 private:
  void fill(std::size_t size) {
    while (bytes_.size() < size) {
      std::string block(size - bytes_.size(), '\0');
      const std::size_t got = readSome(descriptor_, block.data(), block.size(), name_);
      if (got == 0) {
        return;
      }
      bytes_.append(block, 0, got);
    }
  }

  int descriptor_;
  const std::string& name_;
  std::string bytes_;
  std::size_t at_ = 0;
};

// A copy of everything on a pipe, in a file without a name.
UniqueFd takenIn(const UniqueFd& pipe, const std::string& front, const std::string& name) {
  std::FILE* scratch = std::tmpfile();
  if (scratch == nullptr) {
    failInput(name, "no temporary file for what comes on the pipe: " + systemMessage(errno));
  }
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> closed(scratch, std::fclose);
  UniqueFd copy = duplicate(::fileno(scratch), ExitCode::kInput, name);
  writeAll(copy.get(), front.data(), front.size(), "temporary file");
  std::vector<char> block(1U << 16U);
  while (const std::size_t got = readSome(pipe.get(), block.data(), block.size(), name)) {
    writeAll(copy.get(), block.data(), got, "temporary file");
  }
  ::lseek(copy.get(), 0, SEEK_SET);
  return copy;
}

std::unique_ptr<AudioSource> openFile(UniqueFd fd, const std::string& name) {
  try {
    return std::make_unique<SoundFileReader>(std::move(fd), name);
  } catch (const ToolError& error) {
    if (!needsConversion(name)) {
      throw;
    }
    failInput(name, "this kind of file is not read here; convert it first, as with: ffmpeg -i '" +
                        name + "' '" +
                        std::filesystem::path(name).replace_extension(".wav").string() + "'");
  }
}

std::unique_ptr<AudioSource> openSamples(UniqueFd fd, const std::string& name, std::string before,
                                         const StreamOptions& options) {
  if (!options.rate) {
    throw ToolError(ExitCode::kUsage,
                    name +
                        ": samples without a header need --rate (and --channels, --format "
                        "where they are not 1 and s16le)");
  }
  return std::make_unique<StreamReader>(
      std::move(fd), name, AudioSpec{*options.rate, options.channels},
      sampleFormat(options.format.value_or(kUsualFormat)), std::move(before));
}

std::unique_ptr<AudioSource> openPipe(UniqueFd fd, const std::string& name,
                                      const StreamOptions& options) {
  Front front(fd.get(), name);
  const std::string head = front.head();
  if (isWav(head)) {
    const auto header = readWavHeader([&](std::size_t size) { return front.read(size); });
    if (header && header->format) {
      return std::make_unique<StreamReader>(std::move(fd), name, header->spec, *header->format,
                                            front.all().substr(header->dataOffset),
                                            header->dataBytes);
    }
  }
  if (isSoundFile(head)) {
    return openFile(takenIn(fd, front.all(), name), name);
  }
  if ((head.size() >= 8 && head.compare(4, 4, "ftyp") == 0) ||
      head.starts_with("\x1A\x45\xDF\xA3")) {
    failInput(name,
              "this kind of file is not read here; convert it on the way, as with: "
              "ffmpeg -i FILE -f wav - | orvel ...");
  }
  return openSamples(std::move(fd), name, head, options);
}

// What begins like a sound file in place of a pipe, as with `orvel clean - out.wav < in.flac`.
bool beginsLikeSoundFile(int descriptor) {
  std::string head(kHeadBytes, '\0');
  const ssize_t got = ::pread(descriptor, head.data(), head.size(), 0);
  head.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
  return isSoundFile(head) && ::lseek(descriptor, 0, SEEK_CUR) == 0;
}

}  // namespace

bool isStream(const std::string& path) {
  if (namedDescriptor(path, 0)) {
    return true;
  }
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
}

std::unique_ptr<AudioSource> openSource(const std::string& path, const StreamOptions& options) {
  const std::string name = path == "-" ? "standard input" : path;
  UniqueFd fd = openPath(path, O_RDONLY);
  struct stat status {};
  if (::fstat(fd.get(), &status) != 0 || S_ISDIR(status.st_mode)) {
    failInput(name, "is a directory");
  }
  std::unique_ptr<AudioSource> source;
  if (!S_ISREG(status.st_mode)) {
    source = openPipe(std::move(fd), name, options);
  } else if (isHeaderless(path) || (isStream(path) && !beginsLikeSoundFile(fd.get()))) {
    source = openSamples(std::move(fd), name, {}, options);
  } else {
    source = openFile(std::move(fd), name);
  }
  requireSpec(name, source->spec());
  return source;
}

std::unique_ptr<AudioSink> openSink(const std::string& path, const AudioSource& source,
                                    const StreamOptions& options, bool force) {
  const AudioSpec spec = source.spec();
  if (!isStream(path)) {
    if (options.container) {
      throw ToolError(
          ExitCode::kUsage,
          "--container: for pipes only; the extension names the container of '" + path + "'");
    }
    if (isHeaderless(path)) {
      return std::make_unique<SampleFileWriter>(path, spec, options, force);
    }
    const int format = outputFormat(source.format(), path, source.name(), spec,
                                    source.claimedFrames().value_or(0));
    return std::make_unique<SoundFileWriter>(path, format, spec, source.description(), force);
  }
  const std::string name = path == "-" ? "standard output" : path;
  // A FIFO may be called voice.wav.
  const bool wav = options.container ? *options.container == "wav"
                                     : std::filesystem::path(path).extension() == ".wav";
  if (!wav) {
    return std::make_unique<StreamWriter>(openPath(path, O_WRONLY), name, spec,
                                          sampleFormat(options.format.value_or(kUsualFormat)),
                                          StreamWriter::Header::kNone);
  }
  const SampleFormat format =
      options.format ? sampleFormat(*options.format) : nearestFormat(source.format());
  return std::make_unique<StreamWriter>(openPath(path, O_WRONLY), name, spec, format,
                                        StreamWriter::Header::kWav);
}

}  // namespace ORVEL::TOOLS
