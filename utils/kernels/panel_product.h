#pragma once

#include <cstddef>

#include "utils/kernels/kernels.h"

namespace ORVEL::UTILS {

/** Some outputs of a matrix. */
struct Panel {
  const float* values;
  /** Values from one row to the next. */
  std::size_t stride;
  /** Outputs; values up to the next whole unit are read as well. */
  std::size_t outputs;
  std::size_t inputs;
};

/** y += W^T x for `count` vectors, xStride and yStride apart, of a panel of kMostPanel outputs at most. */
void multiplyAddPanel(const Panel& panel, std::size_t count, const float* x, std::size_t xStride,
                      float* y, std::size_t yStride);

}  // namespace ORVEL::UTILS
