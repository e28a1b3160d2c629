#pragma once

#include <optional>
#include <string>
#include <vector>

namespace ORVEL::TOOLS {

/** How headerless audio on standard input and output is laid out. */
struct RawOptions {
  std::optional<int> rate;
  int channels = 1;
  std::string format = "s16le";
};

/** Which models are used. */
struct ModelOptions {
  std::optional<std::string> model;
  std::optional<std::string> directory;
  std::vector<std::string> settings;  ///< KEY=VALUE
};

}  // namespace ORVEL::TOOLS
