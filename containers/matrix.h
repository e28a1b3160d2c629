#pragma once

#include <cstdint>
#include <vector>

namespace ORVEL::CONTAINERS {

/**
 * Dense matrix in file order: `dim0` rows (one per network input) of `dim1` values (one per output),
 * row after row. After loading, data.size() == dim0 * dim1.
 */
struct Matrix {
  std::vector<float> data;
  std::uint32_t dim0 = 0;
  std::uint32_t dim1 = 0;
};

}  // namespace ORVEL::CONTAINERS
