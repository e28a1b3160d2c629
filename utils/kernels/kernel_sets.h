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

}  // namespace ORVEL::UTILS
