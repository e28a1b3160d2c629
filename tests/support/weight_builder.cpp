#include "tests/support/weight_builder.h"

#include <algorithm>
#include <cstring>

namespace orvel_test {
namespace {

std::string floatBytes(float value) {
  uint32_t bits = 0;
  std::memcpy(&bits, &value, sizeof bits);
  return u32Bytes(bits);
}

std::string floatsBytes(const Floats& values) {
  std::string bytes;
  for (const float value : values)
    bytes += floatBytes(value);
  return bytes;
}

std::string vectorBytes(const Floats& values) {
  return u32Bytes(static_cast<uint32_t>(values.size())) + floatsBytes(values);
}

std::string matrixBytes(const Dense& m) {
  return u32Bytes(m.rows) + u32Bytes(m.cols) + floatsBytes(m.data);
}

}  // namespace

std::string u32Bytes(uint32_t value) {
  std::string bytes;
  for (int shift = 0; shift < 32; shift += 8)
    bytes += static_cast<char>((value >> shift) & 0xFFU);
  return bytes;
}

WeightBuilder& WeightBuilder::raw(const std::string& name, uint32_t type,
                                  const std::string& payload) {
  const auto found = std::find_if(records_.begin(), records_.end(),
                                  [&](const auto& record) { return record.first == name; });
  if (found != records_.end()) {
    found->second = u32Bytes(type) + payload;
  } else {
    records_.emplace_back(name, u32Bytes(type) + payload);
  }
  return *this;
}

WeightBuilder& WeightBuilder::drop(const std::string& name) {
  records_.erase(std::remove_if(records_.begin(), records_.end(),
                                [&](const auto& record) { return record.first == name; }),
                 records_.end());
  return *this;
}

WeightBuilder& WeightBuilder::real(const std::string& name, float value) {
  return raw(name, 0, floatBytes(value));
}
WeightBuilder& WeightBuilder::integer(const std::string& name, int32_t value) {
  return raw(name, 1, u32Bytes(static_cast<uint32_t>(value)));
}
WeightBuilder& WeightBuilder::text(const std::string& name, const std::string& value) {
  return raw(name, 2, u32Bytes(static_cast<uint32_t>(value.size())) + value);
}
WeightBuilder& WeightBuilder::floats(const std::string& name, const Floats& value) {
  return raw(name, 3, vectorBytes(value));
}
WeightBuilder& WeightBuilder::matrix(const std::string& name, const Dense& value) {
  return raw(name, 4, matrixBytes(value));
}
WeightBuilder& WeightBuilder::lists(const std::string& name, const std::vector<Floats>& value) {
  std::string payload = u32Bytes(static_cast<uint32_t>(value.size()));
  for (const Floats& item : value)
    payload += vectorBytes(item);
  return raw(name, 5, payload);
}
WeightBuilder& WeightBuilder::matrices(const std::string& name, const std::vector<Dense>& value) {
  std::string payload = u32Bytes(static_cast<uint32_t>(value.size()));
  for (const Dense& item : value)
    payload += matrixBytes(item);
  return raw(name, 6, payload);
}

std::string WeightBuilder::bytes() const {
  std::string all;
  for (const auto& [name, body] : records_) {
    all += u32Bytes(static_cast<uint32_t>(name.size())) + name + body;
  }
  return all;
}

std::vector<WeightBuilder::Span> WeightBuilder::spans() const {
  std::vector<Span> result;
  size_t at = 0;
  for (const auto& [name, body] : records_) {
    result.push_back({at, at + 4 + name.size(), at + 4 + name.size() + body.size()});
    at = result.back().end;
  }
  return result;
}

}  // namespace orvel_test
