// Writes weight files byte by byte, independently of the library's reader.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace orvel_test {

// Row-major: one row per input value, one column per output value.
struct Dense {
  uint32_t rows = 0;
  uint32_t cols = 0;
  std::vector<float> data;
  float at(size_t row, size_t col) const { return data[row * cols + col]; }
};

using Floats = std::vector<float>;

std::string u32Bytes(uint32_t value);

// Records keep the order in which they were first set; setting a name again replaces its value.
class WeightBuilder {
 public:
  WeightBuilder& real(const std::string& name, float value);
  WeightBuilder& integer(const std::string& name, int32_t value);
  WeightBuilder& text(const std::string& name, const std::string& value);
  WeightBuilder& floats(const std::string& name, const Floats& value);
  WeightBuilder& matrix(const std::string& name, const Dense& value);
  WeightBuilder& lists(const std::string& name, const std::vector<Floats>& value);
  WeightBuilder& matrices(const std::string& name, const std::vector<Dense>& value);
  // A record with any type code and payload, for hostile files.
  WeightBuilder& raw(const std::string& name, uint32_t type, const std::string& payload);
  WeightBuilder& drop(const std::string& name);

  std::string bytes() const;
  // Per record: offset of its type code and of the first byte behind it.
  struct Span {
    size_t begin, type, end;
  };
  std::vector<Span> spans() const;

 private:
  std::vector<std::pair<std::string, std::string>> records_;  // name -> type code and payload
};

}  // namespace orvel_test
