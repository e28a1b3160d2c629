#include "tools/model_report.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <span>
#include <sstream>

#include "containers/matrix.h"
#include "tools/tool_error.h"
#include "weights/control_file.h"
#include "weights/weight.h"

namespace ORVEL::TOOLS {
namespace {

namespace fs = std::filesystem;

using CONTAINERS::AnyMap;
using CONTAINERS::Matrix;
using Vector = std::vector<float>;

[[noreturn]] void fail(const fs::path& file, const std::string& reason) {
  throw ToolError(ExitCode::kModel, file.string() + ": " + reason);
}

std::string contents(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(in)), {});
  if (!fs::is_regular_file(file) || !in.is_open()) {
    fail(file, "no such file");
  }
  return bytes;
}

// Takes what the control file says; gives its text.
std::string readControl(const fs::path& file, ModelReport& report) {
  std::string text = contents(file);
  const WEIGHTS::ControlText control = WEIGHTS::parseControlText(text);
  if (!control.problem.empty()) {
    fail(file, "cannot be read as a control file (KEY VALUE per line): " + control.problem);
  }
  report.controlFile = file;
  for (const auto& entry : control.entries) {
    if (entry.key != "WEIGHT") {
      report.keys.emplace_back(entry.key, entry.value);
    } else if (report.weightFile.empty()) {
      std::string path = entry.value;
      std::replace(path.begin(), path.end(), '\\', '/');
      report.weightFile = file.parent_path() / path;
    }
  }
  if (report.weightFile.empty()) {
    fail(file, "names no weight file (no WEIGHT line)");
  }
  return text;
}

void measure(const Vector& values, RecordReport& report) {
  report.count += values.size();
  for (float value : values) {
    if (!std::isfinite(value)) {
      ++report.notFinite;
      continue;
    }
    report.minimum = std::min(report.minimum.value_or(value), value);
    report.maximum = std::max(report.maximum.value_or(value), value);
  }
}

std::string shape(const Vector& vector) { return std::to_string(vector.size()); }
std::string shape(const Matrix& matrix) {
  return std::to_string(matrix.dim0) + " x " + std::to_string(matrix.dim1);
}
const Vector& values(const Vector& vector) { return vector; }
const Vector& values(const Matrix& matrix) { return matrix.data; }

// A damaged file may hold a million tiny lists: the shape names the first ones.
template <class T>
void describeList(const std::vector<T>& list, const char* plural, RecordReport& report) {
  constexpr std::size_t kShown = 16;
  report.type = std::to_string(list.size()) + " " + plural;
  for (std::size_t i = 0; i < list.size(); ++i) {
    if (i < kShown) {
      report.shape += (i > 0 ? ", " : "") + shape(list[i]);
    } else if (i == kShown) {
      report.shape += ", ...";
    }
    measure(values(list[i]), report);
  }
}

RecordReport describe(const std::string& name, const AnyMap& map) {
  RecordReport report;
  report.name = name;
  report.type = "unknown";
  if (const auto integer = map.get<int>(name)) {
    report.type = "int";
    report.value = std::to_string(*integer);
  } else if (const auto real = map.get<float>(name)) {
    report.type = "float";
    report.value = formatText("%g", static_cast<double>(*real));
  } else if (const auto word = map.get<std::string>(name)) {
    report.type = "text";
    report.value = *word;
  } else if (const auto vector = map.get<Vector>(name)) {
    report.type = "vector";
    report.shape = shape(*vector);
    measure(*vector, report);
  } else if (const auto matrix = map.get<Matrix>(name)) {
    report.type = "matrix";
    report.shape = shape(*matrix);
    measure(matrix->data, report);
  } else if (const auto vectors = map.get<std::vector<Vector>>(name)) {
    describeList(*vectors, "vectors", report);
  } else if (const auto matrices = map.get<std::vector<Matrix>>(name)) {
    describeList(*matrices, "matrices", report);
  }
  return report;
}

int wholeNumber(const WEIGHTS::Weight& weight, const char* name) {
  const auto value = weight.values().get<int>(name);
  return value == nullptr ? 0 : *value;
}

// Texts of a weight file may hold any bytes; a terminal gets only what can be shown.
std::string printable(std::string text) {
  constexpr std::size_t kLongest = 60;
  if (text.size() > kLongest) {
    text = text.substr(0, kLongest) + "...";
  }
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
  return text;
}

std::string padded(std::string text, std::size_t width) {
  text.resize(std::max(width, text.size()), ' ');
  return text;
}

std::string recordTable(const std::vector<RecordReport>& records) {
  std::vector<std::array<std::string, 4>> rows;
  std::array<std::size_t, 4> widths{};
  for (const RecordReport& record : records) {
    std::string range;
    if (record.minimum) {
      range = formatText("%.4g .. %.4g", static_cast<double>(*record.minimum),
                         static_cast<double>(*record.maximum));
    }
    if (record.notFinite > 0) {
      range += "  (" + std::to_string(record.notFinite) + " NaN or infinite)";
    }
    rows.push_back({printable(record.name), record.type,
                    record.value.empty() ? record.shape : printable(record.value), range});
    for (std::size_t i = 0; i < widths.size(); ++i) {
      widths[i] = std::max(widths[i], rows.back()[i].size());
    }
  }
  std::string text;
  for (const auto& row : rows) {
    text += "  " + padded(row[0], widths[0]) + "  " + padded(row[1], widths[1]) + "  " +
            padded(row[2], widths[2]) + "  " + row[3] + "\n";
  }
  return text;
}

}  // namespace

ModelReport reportModel(const fs::path& file) {
  ModelReport report;
  std::string control;
  if (file.extension() == ".ctl") {
    control = readControl(file, report);
  } else {
    report.weightFile = file;
  }
  const std::string bytes = contents(report.weightFile);
  WEIGHTS::Weight weight;
  const std::string problem = weight.parse(bytes);
  if (weight.values().size() == 0) {
    fail(report.weightFile, problem.empty() ? "holds no records" : problem);
  }
  if (const auto version = weight.values().get<std::string>("Version")) {
    report.version = *version;
  }
  report.sampleRate = wholeNumber(weight, "SampleRate");
  report.frameLength = wholeNumber(weight, "FrameLength");
  report.step = wholeNumber(weight, "Step");
  for (const auto& [name, held] : weight.values()) {
    report.records.push_back(describe(name, weight.values()));
  }
  try {
    orvel::Library library;
    report.model =
        library.loadModelFromMemory(control, std::as_bytes(std::span(bytes)), file.stem().string());
  } catch (const orvel::Error& error) {
    report.refusal = error.what();
  }
  return report;
}

nlohmann::json toJson(const ModelReport& report) {
  nlohmann::json records = nlohmann::json::array();
  for (const RecordReport& record : report.records) {
    nlohmann::json entry = {{"name", record.name}, {"type", record.type}};
    if (!record.shape.empty()) {
      entry["shape"] = record.shape;
    }
    if (!record.value.empty()) {
      entry["value"] = record.value;
    }
    if (record.count > 0) {
      entry["count"] = record.count;
    }
    if (record.minimum) {
      entry["range"] = {*record.minimum, *record.maximum};
    }
    if (record.notFinite > 0) {
      entry["not_finite"] = record.notFinite;
    }
    records.push_back(std::move(entry));
  }
  nlohmann::json keys = nlohmann::json::object();
  for (const auto& [key, value] : report.keys) {
    keys[key] = value;
  }
  nlohmann::json document = {{"control_file", report.controlFile.string()},
                             {"weight_file", report.weightFile.string()},
                             {"version", report.version},
                             {"sample_rate", report.sampleRate},
                             {"frame_length", report.frameLength},
                             {"step", report.step},
                             {"usable", report.model.has_value()},
                             {"keys", std::move(keys)},
                             {"records", std::move(records)}};
  if (report.model) {
    document["weights"] = report.model->weights;
    if (report.model->kind == orvel::ModelKind::noiseCleaning) {
      document["latency"] = report.model->latency;
    }
  } else {
    document["refusal"] = report.refusal;
  }
  return document;
}

std::string toText(const ModelReport& report) {
  const double perMs = report.sampleRate > 0 ? report.sampleRate / 1000.0 : 1.0;
  const auto samples = [&](std::size_t count) {
    return formatText("%zu samples (%.4g ms)", count, static_cast<double>(count) / perMs);
  };
  std::ostringstream out;
  if (!report.controlFile.empty()) {
    out << "control file  " << report.controlFile.string() << '\n';
  }
  out << "weight file   " << report.weightFile.string() << '\n';
  out << "version       " << (report.version.empty() ? "none" : printable(report.version)) << '\n';
  out << "sample rate   " << report.sampleRate << " Hz\n";
  out << "frame         " << samples(static_cast<std::size_t>(std::max(report.frameLength, 0)))
      << '\n';
  if (report.step > 0) {
    out << "hop           " << samples(static_cast<std::size_t>(report.step)) << '\n';
  }
  if (!report.model) {
    out << "usable        no: " << report.refusal << '\n';
  } else {
    if (report.model->kind == orvel::ModelKind::noiseCleaning) {
      out << "latency       " << samples(report.model->latency) << " with 10 ms frames\n";
    } else {
      out << "usable        yes\n";
    }
    out << "weights       " << report.model->weights << '\n';
  }
  for (const auto& [key, value] : report.keys) {
    out << "key           " << printable(key) << " = " << printable(value) << '\n';
  }
  out << "records\n" << recordTable(report.records);
  return out.str();
}

}  // namespace ORVEL::TOOLS
