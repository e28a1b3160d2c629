#include "bench/peak.h"

#include <algorithm>
#include <cstddef>

#include "bench/support.h"

namespace orvel_bench {
namespace {

constexpr std::size_t kSteps = 200000;
// As many chains as hide the latency of one and still fit into the registers.
constexpr std::size_t kChains = 12;

template <class Vector>
[[gnu::always_inline]] inline float multiplyAdds() {
  Vector sums[kChains] = {};
  Vector factor = Vector{} + 0.5F;
  asm volatile("" : "+m"(factor));
  for (std::size_t i = 0; i < kSteps; ++i) {
#pragma GCC unroll 16
    for (std::size_t c = 0; c < kChains; ++c)
      sums[c] = sums[c] * factor + factor;
  }
  Vector all = sums[0];
  for (std::size_t c = 1; c < kChains; ++c)
    all += sums[c];
  return all[0];
}

struct Chains {
  float (*run)();
  std::size_t width;  // floats in a vector
};

#if defined(__x86_64__)
using Wide [[gnu::vector_size(64)]] = float;
using Medium [[gnu::vector_size(32)]] = float;
using Narrow [[gnu::vector_size(16)]] = float;
[[gnu::target("avx512f")]] float wide() { return multiplyAdds<Wide>(); }
[[gnu::target("avx2,fma")]] float medium() { return multiplyAdds<Medium>(); }
float narrow() { return multiplyAdds<Narrow>(); }

Chains widest() {
  if (__builtin_cpu_supports("avx512f")) return {wide, 16};
  if (__builtin_cpu_supports("fma")) return {medium, 8};
  return {narrow, 4};
}
#else
using Narrow [[gnu::vector_size(16)]] = float;
float narrow() { return multiplyAdds<Narrow>(); }
Chains widest() { return {narrow, 4}; }
#endif

}  // namespace

double peakFlopsPerNanosecond() {
  const Chains chains = widest();
  double least = 1e30;
  for (int i = 0; i < 5; ++i) {
    volatile float kept = 0.0F;
    least = std::min(least, nanosecondsOf([&] { kept = chains.run(); }));
  }
  return 2.0 * static_cast<double>(kSteps * kChains * chains.width) / least;
}

}  // namespace orvel_bench
