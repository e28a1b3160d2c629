#pragma once

#include <memory>
#include <string>

#include "tools/audio_stream.h"
#include "tools/options.h"

namespace ORVEL::TOOLS {

/** What stands for standard input or output in place of a file. */
inline constexpr const char* kStream = "-";

/** A sound file, or raw audio on standard input for "-". @throws ToolError */
std::unique_ptr<AudioSource> openSource(const std::string& path, const RawOptions& raw);

}  // namespace ORVEL::TOOLS
