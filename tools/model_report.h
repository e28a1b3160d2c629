#pragma once

#include <cstdint>
#include <filesystem>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "orvel/orvel.hpp"

namespace ORVEL::TOOLS {

/** One record of a weight file. */
struct RecordReport {
  std::string name;
  std::string type;   ///< "int", "float", "text", "vector", "matrix", "3 vectors", "2 matrices"
  std::string shape;  ///< "256", "244 x 94", "64 x 32, 32 x 32"; empty for single values
  std::string value;  ///< of a single value
  std::uint64_t count = 0;       ///< numbers in vectors and matrices
  std::optional<float> minimum;  ///< of the finite numbers
  std::optional<float> maximum;
  std::uint64_t notFinite = 0;  ///< numbers that are NaN or infinite
};

/** What a model says about itself, and whether the library takes it. */
struct ModelReport {
  std::filesystem::path controlFile;  ///< empty when a weight file was looked at by itself
  std::filesystem::path weightFile;
  std::vector<std::pair<std::string, std::string>> keys;  ///< tuning keys of the control file
  std::string version;                                    ///< empty when there is none
  int sampleRate = 0;
  int frameLength = 0;
  int step = 0;
  std::vector<RecordReport> records;  ///< in the order of their names
  std::optional<orvel::Model> model;  ///< what the library says
  std::string refusal;                ///< or why it does not take it
};

/**
 * Reads a control file with its weights, or a weight file (any other extension than ".ctl").
 * @throws ToolError (kModel)
 */
ModelReport reportModel(const std::filesystem::path& file);

nlohmann::json toJson(const ModelReport& report);
std::string toText(const ModelReport& report);

}  // namespace ORVEL::TOOLS
