// The bytes of a weight file: little-endian records of name, type code and payload.
#include <algorithm>
#include <bit>
#include <cctype>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "containers/matrix.h"
#include "weights/weight.h"

namespace ORVEL::WEIGHTS {

static_assert(std::endian::native == std::endian::little, "weight files are read byte for byte");

namespace {

using CONTAINERS::AnyMap;
using CONTAINERS::Matrix;

enum class RecordType : std::uint32_t {
  kFloat = 0,
  kInt = 1,
  kText = 2,
  kVector = 3,
  kMatrix = 4,
  kVectorList = 5,
  kMatrixList = 6,
};

/** Takes values from the front of the bytes; a value that is cut uses up all of them. */
class Reader {
 public:
  explicit Reader(std::string_view bytes) : rest_(bytes) {}

  std::size_t left() const { return rest_.size(); }

  bool take(std::uint32_t& value) { return takeBytes(&value, sizeof value); }
  bool take(float& value) { return takeBytes(&value, sizeof value); }
  bool take(std::string& value) {
    std::uint32_t length = 0;
    if (!take(length) || !has(length)) {
      return false;
    }
    value = rest_.substr(0, length);
    rest_.remove_prefix(length);
    return true;
  }
  bool take(std::vector<float>& values) {
    std::uint32_t count = 0;
    return take(count) && takeElements(values, count);
  }
  bool take(Matrix& matrix) {
    return take(matrix.dim0) && take(matrix.dim1) &&
           takeElements(matrix.data, std::uint64_t{matrix.dim0} * matrix.dim1);
  }
  // The list grows element by element: an untrue count must not reserve memory.
  template <class T>
  bool take(std::vector<T>& list) {
    std::uint32_t count = 0;
    if (!take(count)) {
      return false;
    }
    for (std::uint32_t i = 0; i < count; ++i) {
      T element{};
      if (!take(element)) {
        return false;
      }
      list.push_back(std::move(element));
    }
    return true;
  }

 private:
  bool has(std::uint64_t count) {
    if (count > rest_.size()) {
      rest_ = {};
      return false;
    }
    return true;
  }
  bool takeBytes(void* to, std::size_t count) {
    if (!has(count)) {
      return false;
    }
    std::memcpy(to, rest_.data(), count);
    rest_.remove_prefix(count);
    return true;
  }
  bool takeElements(std::vector<float>& values, std::uint64_t count) {
    if (count > rest_.size() / sizeof(float)) {
      rest_ = {};
      return false;
    }
    values.resize(count);
    return count == 0 || takeBytes(values.data(), count * sizeof(float));
  }

  std::string_view rest_;
};

enum class Payload { kRead, kCut, kRepeated, kUnknownType };

template <class T>
Payload readValue(Reader& reader, const std::string& name, AnyMap& values) {
  T value{};
  if (!reader.take(value)) {
    return Payload::kCut;
  }
  return values.set<T>(name, std::move(value), false) != nullptr ? Payload::kRead
                                                                 : Payload::kRepeated;
}

Payload readInt(Reader& reader, const std::string& name, AnyMap& values) {
  std::uint32_t value = 0;
  if (!reader.take(value)) {
    return Payload::kCut;
  }
  return values.set<int>(name, __builtin_bit_cast(std::int32_t, value), false) != nullptr
             ? Payload::kRead
             : Payload::kRepeated;
}

Payload readPayload(Reader& reader, const std::string& name, RecordType type, AnyMap& values) {
  switch (type) {
    case RecordType::kFloat:
      return readValue<float>(reader, name, values);
    case RecordType::kInt:
      return readInt(reader, name, values);
    case RecordType::kText:
      return readValue<std::string>(reader, name, values);
    case RecordType::kVector:
      return readValue<std::vector<float>>(reader, name, values);
    case RecordType::kMatrix:
      return readValue<Matrix>(reader, name, values);
    case RecordType::kVectorList:
      return readValue<std::vector<std::vector<float>>>(reader, name, values);
    case RecordType::kMatrixList:
      return readValue<std::vector<Matrix>>(reader, name, values);
  }
  return Payload::kUnknownType;
}

/** The name as a message can show it: damaged files hold any bytes. */
std::string shown(const std::string& name) {
  constexpr std::size_t kLongest = 40;
  std::string text = name.substr(0, kLongest);
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
  return "the record '" + text + "'";
}

std::string problemOf(Payload payload, const std::string& name, std::uint32_t type) {
  switch (payload) {
    case Payload::kRead:
      return name.empty() ? "holds a record without a name (damaged?)" : "";
    case Payload::kCut:
      return "ends inside " + shown(name) + " (truncated?)";
    case Payload::kRepeated:
      return "holds " + shown(name) + " twice";
    case Payload::kUnknownType:
      return shown(name) + " is of the unknown type " + std::to_string(type) + " (damaged?)";
  }
  return "";
}

std::string problemOfFirstName(std::string_view bytes) {
  const std::string_view start = bytes.substr(0, 64);
  const bool isText = std::all_of(start.begin(), start.end(), [](unsigned char c) {
    return std::isprint(c) != 0 || std::isspace(c) != 0;
  });
  return isText ? "is not a weight file but a text (a control file?)" : "is not a weight file";
}

}  // namespace

// A record that is cut inside its type code or payload is dropped; an unknown type code has no payload;
// the first of two records with one name is kept. The memory is in proportion to the bytes, whatever
// counts they hold.
std::string Weight::parse(std::string_view bytes) {
  std::string firstProblem = bytes.empty() ? "is empty" : "";
  const auto note = [&firstProblem](std::string problem) {
    if (firstProblem.empty()) {
      firstProblem = std::move(problem);
    }
  };
  error_.clear();
  Reader reader(bytes);
  while (reader.left() > 0) {
    const bool isFirst = reader.left() == bytes.size();
    std::string name;
    if (!reader.take(name)) {
      note(isFirst && bytes.size() >= 4
               ? problemOfFirstName(bytes)
               : "ends inside the name of a record (truncated or damaged?)");
      values_.clear();
      error_ = "Corrupted weight file!";
      break;
    }
    std::uint32_t type = 0;
    const Payload payload = reader.take(type)
                                ? readPayload(reader, name, static_cast<RecordType>(type), values_)
                                : Payload::kCut;
    note(problemOf(payload, name, type));
  }
  return firstProblem;
}

}  // namespace ORVEL::WEIGHTS
