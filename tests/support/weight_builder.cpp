#include "tests/support/weight_builder.h"

#include <algorithm>
#include <cstring>

namespace orvel_test {
namespace {

std::string bytesOf(float value) {
  uint32_t bits = 0;
  std::memcpy(&bits, &value, sizeof bits);
  return u32Bytes(bits);
}
std::string bytesOf(const Dense& m) {
  std::string bytes = u32Bytes(m.rows) + u32Bytes(m.cols);
  for (const float value : m.data)
    bytes += bytesOf(value);
  return bytes;
}
template <class T>
std::string bytesOf(const std::vector<T>& items) {
  std::string bytes = u32Bytes(static_cast<uint32_t>(items.size()));
  for (const T& item : items)
    bytes += bytesOf(item);
  return bytes;
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
  std::erase_if(records_, [&](const auto& record) { return record.first == name; });
  return *this;
}

WeightBuilder& WeightBuilder::real(const std::string& name, float value) {
  return raw(name, 0, bytesOf(value));
}
WeightBuilder& WeightBuilder::integer(const std::string& name, int32_t value) {
  return raw(name, 1, u32Bytes(static_cast<uint32_t>(value)));
}
WeightBuilder& WeightBuilder::text(const std::string& name, const std::string& value) {
  return raw(name, 2, u32Bytes(static_cast<uint32_t>(value.size())) + value);
}
WeightBuilder& WeightBuilder::floats(const std::string& name, const Floats& value) {
  return raw(name, 3, bytesOf(value));
}
WeightBuilder& WeightBuilder::matrix(const std::string& name, const Dense& value) {
  return raw(name, 4, bytesOf(value));
}
WeightBuilder& WeightBuilder::lists(const std::string& name, const std::vector<Floats>& value) {
  return raw(name, 5, bytesOf(value));
}
WeightBuilder& WeightBuilder::matrices(const std::string& name, const std::vector<Dense>& value) {
  return raw(name, 6, bytesOf(value));
}

std::string WeightBuilder::bytes() const {
  std::string all;
  for (const auto& [name, body] : records_)
    all += u32Bytes(static_cast<uint32_t>(name.size())) + name + body;
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
