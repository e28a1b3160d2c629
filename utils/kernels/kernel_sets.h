#pragma once

#include <cstddef>

#include "utils/kernels/kernels.h"

namespace ORVEL::UTILS {

/** The sets that this processor runs, the fastest first; the list ends with a null pointer. */
const Kernels* const* runnableKernels();

/** The set in use, the fastest unless useKernels() named another. */
const Kernels& kernels();

/** For tests: no other thread may compute meanwhile. */
void useKernels(const Kernels& set);

/** Some outputs of a matrix. */
struct Panel {
  const float* values;
  /** Values from one row to the next. */
  std::size_t stride;
  /** Outputs; values up to the next whole unit are read as well. */
  std::size_t outputs;
  std::size_t inputs;
};

/**
 * y[i] += W^T x[i] for `count` vectors of a panel of kMostPanel outputs at most, which are those from
 * `offset` on of each result.
 */
void multiplyAddPanel(const Panel& panel, std::size_t count, const float* const* x, float* const* y,
                      std::size_t offset);

}  // namespace ORVEL::UTILS
