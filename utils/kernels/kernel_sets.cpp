#include "utils/kernels/kernel_sets.h"

#include <algorithm>
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

void multiplyAddPanel(const Panel& panel, std::size_t count, const float* const* x, float* const* y,
                      std::size_t offset) {
  const Kernels& set = kernels();
  const std::size_t width = (panel.outputs + kUnit - 1) / kUnit * kUnit;
  if (width == panel.outputs) {
    set.multiplyAdd(panel.values, panel.stride, width, panel.inputs, count, x, y, offset);
    return;
  }
  // Wider than y: the results go through an array that has room for whole units.
  constexpr std::size_t kMostTogether = 12;
  alignas(64) std::array<float, kMostPanel * kMostTogether> whole;
  std::array<float*, kMostTogether> results;
  for (std::size_t v = 0; v < kMostTogether; ++v) {
    results[v] = whole.data() + v * width;
  }
  for (std::size_t first = 0; first < count; first += kMostTogether) {
    const std::size_t some = std::min(kMostTogether, count - first);
    for (std::size_t v = 0; v < some; ++v) {
      float* end = std::copy_n(y[first + v] + offset, panel.outputs, results[v]);
      std::fill_n(end, width - panel.outputs, 0.0F);
    }
    set.multiplyAdd(panel.values, panel.stride, width, panel.inputs, some, x + first,
                    results.data(), 0);
    for (std::size_t v = 0; v < some; ++v) {
      std::copy_n(results[v], panel.outputs, y[first + v] + offset);
    }
  }
}

}  // namespace ORVEL::UTILS
