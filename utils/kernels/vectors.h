#pragma once

#include <cstddef>
#include <cstdint>

/**
 * Vectors as long as the registers of the instruction set that the including file is compiled for, in the
 * notation of GCC and Clang. All names are local to that file: it is compiled once for each set.
 */
namespace ORVEL::UTILS {

namespace {

#if defined(__AVX512F__)
constexpr std::size_t kBytes = 64;
#elif defined(__AVX__)
constexpr std::size_t kBytes = 32;
#else
constexpr std::size_t kBytes = 16;
#endif
constexpr std::size_t kFloats = kBytes / sizeof(float);
constexpr std::size_t kDoubles = kBytes / sizeof(double);

using Floats = float __attribute__((vector_size(kBytes)));
using FourFloats = float __attribute__((vector_size(16)));
using HalfFloats = float __attribute__((vector_size(kBytes / 2)));
using Doubles = double __attribute__((vector_size(kBytes)));
using Bits = std::uint64_t __attribute__((vector_size(kBytes)));

#define ORVEL_INLINE inline __attribute__((always_inline))

template <class Vector, class Value>
ORVEL_INLINE Vector load(const Value* from) {
  Vector vector;
  __builtin_memcpy(&vector, from, sizeof vector);
  return vector;
}

template <class Vector, class Value>
ORVEL_INLINE void store(const Vector& vector, Value* to) {
  __builtin_memcpy(to, &vector, sizeof vector);
}

}  // namespace

}  // namespace ORVEL::UTILS
