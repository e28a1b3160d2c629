#pragma once

#include <cstdint>
#include <filesystem>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "weights/weight.h"

namespace ORVEL::TOOLS {

/** One record of a weight file. */
struct RecordReport {
  std::string name;
  std::string type;   ///< "int", "float", "text", "vector", "matrix", "3 vectors", "2 matrices"
  std::string shape;  ///< "256", "244 x 94", "64 x 32, 32 x 32"; empty for single values
  std::string value;  ///< of a single value
  std::uint64_t parameters = 0;
  std::optional<float> minimum;  ///< of the finite values
  std::optional<float> maximum;
  std::uint64_t notFinite = 0;  ///< values that are not a number or infinite
};

/** Lists every record, in the order of the names. */
std::vector<RecordReport> reportRecords(const WEIGHTS::Weight& weight);

/** What a model says about itself. */
struct ModelReport {
  std::filesystem::path controlFile;  ///< empty when a weight file was looked at by itself
  std::filesystem::path weightFile;
  std::vector<std::pair<std::string, std::string>> keys;  ///< tuning keys of the control file
  std::string version;                                    ///< empty when there is none
  int sampleRate = 0;
  int frameLength = 0;
  int step = 0;
  std::uint64_t parameters = 0;
  std::vector<RecordReport> records;
};

/**
 * Reads a control file with its weights, or a weight file (any other extension than ".ctl").
 * @throws ToolError (model)
 */
ModelReport reportModel(const std::filesystem::path& file);

nlohmann::json toJson(const ModelReport& report);
std::string toText(const ModelReport& report);

}  // namespace ORVEL::TOOLS
