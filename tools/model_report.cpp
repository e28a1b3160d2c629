#include "tools/model_report.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tools/tool_error.h"
#include "weights/control_file.h"

namespace ORVEL::TOOLS {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void fail(const fs::path& file, const std::string& reason) {
  throw ToolError(ExitCode::model, file.string() + ": " + reason);
}

// Fills in what the control file says; gives the path of its weight file.
void readControl(const fs::path& file, ModelReport& report) {
  const auto entries = WEIGHTS::readControlFile(file.string());
  if (!entries) fail(file, "cannot be read as a control file (KEY VALUE per line)");
  report.controlFile = file;
  for (const auto& entry : *entries) {
    if (entry.key != "WEIGHT") {
      report.keys.emplace_back(entry.key, entry.value);
    } else if (report.weightFile.empty()) {
      std::string path = entry.value;
      std::replace(path.begin(), path.end(), '\\', '/');
      report.weightFile = file.parent_path() / path;
    }
  }
  if (report.weightFile.empty()) fail(file, "names no weight file (no WEIGHT line)");
}

int wholeNumber(const WEIGHTS::Weight& weight, const char* name) {
  const auto value = weight.values().get<int>(name);
  return value == nullptr ? 0 : *value;
}

std::string range(const RecordReport& record) {
  if (!record.minimum) return "";
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%.4g .. %.4g", static_cast<double>(*record.minimum),
                static_cast<double>(*record.maximum));
  return text.data();
}

// Texts of a weight file may hold any bytes; a terminal gets only what can be shown.
std::string printable(std::string text) {
  constexpr std::size_t kLongest = 60;
  if (text.size() > kLongest) text = text.substr(0, kLongest) + "...";
  for (char& c : text) {
    if (c < ' ' || c > '~') c = '?';
  }
  return text;
}

std::string padded(std::string text, std::size_t width) {
  if (text.size() < width) text.resize(width, ' ');
  return text;
}

}  // namespace

ModelReport reportModel(const fs::path& file) {
  ModelReport report;
  if (!fs::is_regular_file(file)) fail(file, "no such file");
  if (file.extension() == ".ctl") {
    readControl(file, report);
  } else {
    report.weightFile = file;
  }
  WEIGHTS::Weight weight;
  if (!weight.load(report.weightFile.c_str())) {
    fail(report.weightFile,
         fs::is_regular_file(report.weightFile) ? weight.error() : "no such file");
  }
  if (weight.values().size() == 0) fail(report.weightFile, "holds no records");
  if (const auto version = weight.values().get<std::string>("Version")) report.version = *version;
  report.sampleRate = wholeNumber(weight, "SampleRate");
  report.frameLength = wholeNumber(weight, "FrameLength");
  report.step = wholeNumber(weight, "Step");
  report.records = reportRecords(weight);
  for (const RecordReport& record : report.records)
    report.parameters += record.parameters;
  return report;
}

nlohmann::json toJson(const ModelReport& report) {
  nlohmann::json records = nlohmann::json::array();
  for (const RecordReport& record : report.records) {
    nlohmann::json entry = {{"name", record.name}, {"type", record.type}};
    if (!record.shape.empty()) entry["shape"] = record.shape;
    if (!record.value.empty()) entry["value"] = record.value;
    if (record.parameters > 0) entry["parameters"] = record.parameters;
    if (record.minimum) entry["range"] = {*record.minimum, *record.maximum};
    if (record.notFinite > 0) entry["not_finite"] = record.notFinite;
    records.push_back(std::move(entry));
  }
  nlohmann::json keys = nlohmann::json::object();
  for (const auto& [key, value] : report.keys)
    keys[key] = value;
  return {{"control_file", report.controlFile.string()},
          {"weight_file", report.weightFile.string()},
          {"version", report.version},
          {"sample_rate", report.sampleRate},
          {"frame_length", report.frameLength},
          {"step", report.step},
          {"parameters", report.parameters},
          {"keys", std::move(keys)},
          {"records", std::move(records)}};
}

std::string toText(const ModelReport& report) {
  std::ostringstream out;
  if (!report.controlFile.empty()) out << "control file  " << report.controlFile.string() << '\n';
  out << "weight file   " << report.weightFile.string() << '\n';
  out << "version       " << (report.version.empty() ? "none" : printable(report.version)) << '\n';
  const auto samples = [&](int count) {
    std::array<char, 64> text{};
    const double ms = report.sampleRate > 0 ? count * 1000.0 / report.sampleRate : 0.0;
    std::snprintf(text.data(), text.size(), "%d samples (%.3g ms)", count, ms);
    return std::string(text.data());
  };
  out << "sample rate   " << report.sampleRate << " Hz\n";
  out << "frame         " << samples(report.frameLength) << '\n';
  if (report.step > 0) out << "hop           " << samples(report.step) << '\n';
  out << "parameters    " << report.parameters << '\n';
  for (const auto& [key, value] : report.keys) {
    out << "key           " << printable(key) << " = " << printable(value) << '\n';
  }
  std::size_t nameWidth = 0;
  std::size_t typeWidth = 0;
  std::size_t shapeWidth = 0;
  for (const RecordReport& record : report.records) {
    nameWidth = std::max(nameWidth, printable(record.name).size());
    typeWidth = std::max(typeWidth, record.type.size());
    shapeWidth =
        std::max(shapeWidth, std::max(record.shape.size(), printable(record.value).size()));
  }
  out << "records\n";
  for (const RecordReport& record : report.records) {
    out << "  " << padded(printable(record.name), nameWidth) << "  "
        << padded(record.type, typeWidth) << "  "
        << padded(record.value.empty() ? record.shape : printable(record.value), shapeWidth) << "  "
        << range(record);
    if (record.notFinite > 0) out << "  (" << record.notFinite << " values not finite)";
    out << '\n';
  }
  return out.str();
}

}  // namespace ORVEL::TOOLS
