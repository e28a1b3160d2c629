#pragma once

#include <span>
#include <string>
#include <utility>
#include <vector>

namespace ORVEL::TOOLS {

/** A tuning key of the cleaners, without its version suffix. */
struct TuningKey {
  const char* stem;      ///< e.g. "ORVEL_SMOOT_COEF"
  const char* suffixes;  ///< the versions that read it, e.g. "_v0_0_1 _v0_0_2"
  const char* values;    ///< what it accepts, and the default
  const char* meaning;   ///< one sentence for a user
};

std::span<const TuningKey> tuningKeys();

/** True when some cleaner reads a key of that full name. */
bool isKnownTuningKey(const std::string& name);

/** One --set: a key and its value. */
using Setting = std::pair<std::string, std::string>;

/**
 * Takes a --set argument, KEY=VALUE, apart.
 * @throws ToolError (usage) when it cannot stand as a line of a control file.
 */
Setting parseSetting(const std::string& argument);

}  // namespace ORVEL::TOOLS
