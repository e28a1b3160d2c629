#pragma once

#include <cstdint>
#include <filesystem>

#include "tools/audio_stream.h"

namespace ORVEL::TOOLS {

/** Bits of an integer encoding of libsndfile's format word, 0 for float and lossy encodings. */
int pcmBits(int format);

/**
 * libsndfile's format word for an output file: the container that the extension of `path` names (the
 * input's own if it has none), the input's encoding where the container can hold it, else the
 * nearest one.
 *
 * @param frames expected length; a WAV file that would pass 4 GiB becomes RF64.
 * @throws ToolError (usage) for an extension that names no writable container.
 */
int outputFormat(int inputFormat, const std::filesystem::path& path, const AudioSpec& spec,
                 std::int64_t frames);

}  // namespace ORVEL::TOOLS
