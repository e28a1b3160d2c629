#include "tools/open_source.h"

#include <unistd.h>

#include "tools/raw_io.h"
#include "tools/sound_file.h"
#include "tools/tool_error.h"

namespace ORVEL::TOOLS {

std::unique_ptr<AudioSource> openSource(const std::string& path, const RawOptions& raw) {
  if (path != kStream) return std::make_unique<SoundFileReader>(path);
  if (!raw.rate) {
    throw ToolError(ExitCode::usage,
                    "raw audio on standard input needs --rate (and --channels, "
                    "--format where they are not 1 and s16le)");
  }
  return std::make_unique<RawReader>(STDIN_FILENO, "standard input",
                                     AudioSpec{*raw.rate, raw.channels}, rawFormat(raw.format));
}

}  // namespace ORVEL::TOOLS
