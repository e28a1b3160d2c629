#include "weights/weight_records.h"

#include <bit>
#include <string>
#include <utility>
#include <vector>

#include "containers/matrix.h"

namespace ORVEL::WEIGHTS {

namespace {

using CONTAINERS::AnyMap;
using CONTAINERS::Matrix;

template <class T>
void readValue(BinaryFile& file, const std::string& name, AnyMap& values) {
  T value{};
  if (file.read(value).good()) {
    values.set<T>(name, std::move(value), false);
  }
}

void readInt(BinaryFile& file, const std::string& name, AnyMap& values) {
  std::uint32_t value = 0;
  if (file.read(value).good()) {
    values.set<int>(name, std::bit_cast<std::int32_t>(value), false);
  }
}

// The list grows element by element: an untrue count must not reserve memory.
template <class T>
void readList(BinaryFile& file, const std::string& name, AnyMap& values) {
  std::uint32_t count = 0;
  if (!file.read(count).good()) {
    return;
  }
  std::vector<T> list;
  for (std::uint32_t i = 0; i < count; ++i) {
    T element{};
    if (!file.read(element).good()) {
      return;
    }
    list.push_back(std::move(element));
  }
  values.set<std::vector<T>>(name, std::move(list), false);
}

void readPayload(BinaryFile& file, const std::string& name, RecordType type, AnyMap& values) {
  switch (type) {
    case RecordType::kFloat:
      return readValue<float>(file, name, values);
    case RecordType::kInt:
      return readInt(file, name, values);
    case RecordType::kText:
      return readValue<std::string>(file, name, values);
    case RecordType::kVector:
      return readValue<std::vector<float>>(file, name, values);
    case RecordType::kMatrix:
      return readValue<Matrix>(file, name, values);
    case RecordType::kVectorList:
      return readList<std::vector<float>>(file, name, values);
    case RecordType::kMatrixList:
      return readList<Matrix>(file, name, values);
  }
}

}  // namespace

bool readRecords(BinaryFile& file, AnyMap& values) {
  std::string name;
  while (!file.atEnd()) {
    if (!file.read(name).good()) {
      return file.atEnd() && file.lastReadBytes() == 0;
    }
    std::uint32_t type = 0;
    if (file.read(type).good()) {
      readPayload(file, name, static_cast<RecordType>(type), values);
    }
  }
  return true;
}

}  // namespace ORVEL::WEIGHTS
