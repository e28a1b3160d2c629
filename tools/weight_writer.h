#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "containers/matrix.h"

namespace ORVEL::TOOLS {

/** One value of a weight file; the alternative decides the record's type code. */
using WeightValue =
    std::variant<float, std::int32_t, std::string, std::vector<float>, CONTAINERS::Matrix,
                 std::vector<std::vector<float>>, std::vector<CONTAINERS::Matrix>>;

/** Named values in the order in which they are to stand in the file. */
using WeightRecords = std::vector<std::pair<std::string, WeightValue>>;

/**
 * Writes a weight file: records of name, type code and payload, all little-endian.
 *
 * @throws std::runtime_error when the file cannot be written; std::invalid_argument when a matrix
 *         does not hold dim0 * dim1 elements.
 */
void writeWeights(const std::string& path, const WeightRecords& records);

/** A matrix of zeros: `rows` network inputs by `columns` outputs. */
CONTAINERS::Matrix zeroMatrix(std::uint32_t rows, std::uint32_t columns);

/** Element of a matrix, to be read or set. */
inline float& at(CONTAINERS::Matrix& matrix, std::size_t row, std::size_t column) {
  return matrix.data[row * matrix.dim1 + column];
}

}  // namespace ORVEL::TOOLS
