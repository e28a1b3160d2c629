#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

#include "containers/matrix.h"
#include "tools/model_report.h"

namespace ORVEL::TOOLS {
namespace {

using CONTAINERS::AnyMap;
using CONTAINERS::Matrix;
using Vector = std::vector<float>;

std::string text(float value) {
  std::array<char, 32> buffer{};
  std::snprintf(buffer.data(), buffer.size(), "%g", static_cast<double>(value));
  return buffer.data();
}

void measure(const Vector& values, RecordReport& report) {
  report.parameters += values.size();
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
    if (i < kShown) report.shape += (i > 0 ? ", " : "") + shape(list[i]);
    if (i == kShown) report.shape += ", ...";
    measure(values(list[i]), report);
  }
}

RecordReport describe(const std::string& name, const AnyMap& map) {
  RecordReport report{name, "unknown", "", "", 0, {}, {}, 0};
  if (const auto integer = map.get<int>(name)) {
    report.type = "int";
    report.value = std::to_string(*integer);
  } else if (const auto real = map.get<float>(name)) {
    report.type = "float";
    report.value = text(*real);
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

}  // namespace

std::vector<RecordReport> reportRecords(const WEIGHTS::Weight& weight) {
  std::vector<RecordReport> records;
  for (const auto& [name, held] : weight.values())
    records.push_back(describe(name, weight.values()));
  return records;
}

}  // namespace ORVEL::TOOLS
