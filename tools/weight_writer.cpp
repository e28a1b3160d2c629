#include "tools/weight_writer.h"

#include <stdexcept>

#include "weights/binary_file.h"

namespace ORVEL::TOOLS {
namespace {

using CONTAINERS::Matrix;
using WEIGHTS::BinaryFile;

void check(const Matrix& matrix) {
  if (matrix.data.size() != std::uint64_t{matrix.dim0} * matrix.dim1) {
    throw std::invalid_argument("a matrix of " + std::to_string(matrix.dim0) + " x " +
                                std::to_string(matrix.dim1) + " holds " +
                                std::to_string(matrix.data.size()) + " elements");
  }
}

struct PayloadWriter {
  BinaryFile& file;

  void operator()(float value) const { file.write(value); }
  void operator()(std::int32_t value) const { file.write(static_cast<std::uint32_t>(value)); }
  void operator()(const std::string& value) const { file.write(value); }
  void operator()(const std::vector<float>& values) const { file.write(values); }
  void operator()(const Matrix& matrix) const {
    check(matrix);
    file.write(matrix);
  }
  template <class T>
  void operator()(const std::vector<T>& list) const {
    file.write(static_cast<std::uint32_t>(list.size()));
    for (const T& element : list)
      (*this)(element);
  }
};

}  // namespace

void writeWeights(const std::string& path, const WeightRecords& records) {
  BinaryFile file(path, 1);
  for (const auto& [name, value] : records) {
    // The variant's alternatives stand in the order of the type codes.
    file.write(name).write(static_cast<std::uint32_t>(value.index()));
    std::visit(PayloadWriter{file}, value);
  }
  if (!file.good()) throw std::runtime_error(path + ": cannot be written");
}

CONTAINERS::Matrix zeroMatrix(std::uint32_t rows, std::uint32_t columns) {
  Matrix matrix;
  matrix.dim0 = rows;
  matrix.dim1 = columns;
  matrix.data.resize(std::size_t{rows} * columns);
  return matrix;
}

}  // namespace ORVEL::TOOLS
