#pragma once

#include <cstdint>
#include <filesystem>

#include "tools/audio.h"

namespace ORVEL::TOOLS {

/** True for extensions of files that hold samples without a header: .raw and .pcm. */
bool isHeaderless(const std::filesystem::path& path);

/** True for extensions of files that hold audio which libsndfile does not read: .m4a, .mp4, .webm, ... */
bool needsConversion(const std::filesystem::path& path);

/** True when a file that begins with these bytes is one that libsndfile can be tried on. */
bool isSoundFile(const std::string& head);

/**
 * libsndfile's format word for an output file: the container that the extension of `path` names (the
 * input's own if it has none or the same), the input's encoding where the container can hold it, else
 * the nearest one.
 *
 * @param inputFormat format word of the input; container 0 for a stream.
 * @param frames expected length; a WAV file that would pass 4 GiB becomes RF64.
 * @throws ToolError (kUsage) for an extension that names no writable container, (kOutput) when the
 *         container cannot hold the rate or the channels.
 */
int outputFormat(int inputFormat, const std::filesystem::path& path,
                 const std::filesystem::path& inputPath, const AudioSpec& spec,
                 std::int64_t frames);

}  // namespace ORVEL::TOOLS
