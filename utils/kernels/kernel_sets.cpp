#include "utils/kernels/kernel_sets.h"

#include <array>
#include <atomic>

namespace ORVEL::UTILS {

extern const Kernels kBaseline;
#if defined(ORVEL_X86_KERNELS)
extern const Kernels kAvx2;
extern const Kernels kAvx512;
#endif

namespace {

std::array<const Kernels*, 4> findRunnable() {
  std::array<const Kernels*, 4> sets{};
  std::size_t count = 0;
#if defined(ORVEL_X86_KERNELS)
  __builtin_cpu_init();
  const bool hasAvx2 = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
  if (hasAvx2 && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
      __builtin_cpu_supports("avx512vl")) {
    sets[count++] = &kAvx512;
  }
  if (hasAvx2) {
    sets[count++] = &kAvx2;
  }
#endif
  sets[count] = &kBaseline;
  return sets;
}

// Found when the library is loaded: nothing that computes has to ask whether it was.
const std::array<const Kernels*, 4> runnable = findRunnable();
std::atomic<const Kernels*> chosen{runnable.front()};

}  // namespace

const Kernels* const* runnableKernels() { return runnable.data(); }

const Kernels& kernels() { return *chosen.load(std::memory_order_relaxed); }

void useKernels(const Kernels& set) { chosen.store(&set, std::memory_order_relaxed); }

}  // namespace ORVEL::UTILS
