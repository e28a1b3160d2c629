// Compiled several times with the options of an instruction set; ORVEL_KERNELS names the table that
// results. Vectors are those of GCC and Clang: every processor's registers, and plain code without any.
#include "utils/kernels/kernels.h"

#include <cstdint>

#include "utils/kernels/transform_loops.h"
#include "utils/kernels/vectors.h"

namespace ORVEL::UTILS {

namespace {

constexpr std::size_t kPerUnit = kUnit / kFloats;

ORVEL_INLINE Doubles asDoubles(Bits bits) { return load<Doubles>(&bits); }
ORVEL_INLINE Bits asBits(Doubles doubles) { return load<Bits>(&doubles); }

// By Horner's rule, the coefficient of the highest power first.
template <class... Coefficients>
ORVEL_INLINE Doubles polynomial(Doubles x, double highest, Coefficients... lower) {
  Doubles sum = Doubles{} + highest;
  ((sum = sum * x + lower), ...);
  return sum;
}

// e^x to about 1e-11 of its value; 0 below 2^-1023, infinite above 2^1023.5.
ORVEL_INLINE Doubles exponential(Doubles x) {
  constexpr double kLow = -709.0;
  constexpr double kHigh = 710.0;
  // Added to a number, it leaves the nearest whole number in the last bits.
  constexpr double kRounder = 0x1.8p52;
  x = x < kLow ? Doubles{} + kLow : x;
  x = x > kHigh ? Doubles{} + kHigh : x;
  const Doubles shifted = x * 0x1.71547652b82fep0 + kRounder;
  const Doubles n = shifted - kRounder;
  const Doubles r = (x - n * 0x1.62e42fefa3800p-1) - n * 0x1.ef35793c76730p-45;
  // The series of e^r, |r| <= ln(2) / 2.
  const Doubles sum = polynomial(r, 1.0 / 362880, 1.0 / 40320, 1.0 / 5040, 1.0 / 720, 1.0 / 120,
                                 1.0 / 24, 1.0 / 6, 0.5, 1.0, 1.0);
  return sum * asDoubles((asBits(shifted) + 1023) << 52);
}

// ln x to about 1e-12; what is below the normal numbers counts as 0.
ORVEL_INLINE Doubles logarithm(Doubles x) {
  constexpr std::uint64_t kOne = 0x3ff0000000000000;
  constexpr std::uint64_t kRootOfHalf = 0x3fe6a09e667f3bcd;
  // Exponent and mantissa, so that the mantissa lies between the roots of 1/2 and of 2.
  const Bits raised = asBits(x) + (kOne - kRootOfHalf);
  const Bits exponent = raised >> 52;
  const Doubles n = asDoubles(exponent | 0x4330000000000000) - (0x1p52 + 1023.0);
  const Doubles mantissa = asDoubles(asBits(x) - ((exponent - 1023) << 52));
  const Doubles s = (mantissa - 1.0) / (mantissa + 1.0);
  const Doubles q = s * s;
  const Doubles sum =
      polynomial(q, 1.0 / 15, 1.0 / 13, 1.0 / 11, 1.0 / 9, 1.0 / 7, 1.0 / 5, 1.0 / 3, 1.0);
  Doubles result = n * 0x1.62e42fefa39efp-1 + 2.0 * s * sum;
  constexpr double kLeast = 0x1p-1022;
  constexpr double kInfinite = __builtin_inf();
  result = x < kLeast ? Doubles{} - kInfinite : result;
  result = x < 0.0 ? Doubles{} + __builtin_nan("") : result;
  // Infinite and NaN stay what they are.
  return x < kInfinite ? result : x;
}

// A rest shorter than a vector goes through a whole one: the values do not depend on where it begins.
template <class Result, class Function>
ORVEL_INLINE void mapInDouble(const float* x, double scale, double offset, Result* y,
                              std::size_t count, Function function) {
  const auto step = [&](const float* from) {
    const Doubles wide = __builtin_convertvector(load<HalfFloats>(from), Doubles);
    return function(wide * scale + offset);
  };
  const auto deliver = [](Doubles values, Result* to) {
    if constexpr (sizeof(Result) == sizeof(float)) {
      store(__builtin_convertvector(values, HalfFloats), to);
    } else {
      store(values, to);
    }
  };
  std::size_t i = 0;
  for (; i + kDoubles <= count; i += kDoubles) {
    deliver(step(x + i), y + i);
  }
  if (i < count) {
    float rest[kDoubles] = {};
    Result results[kDoubles];
    __builtin_memcpy(rest, x + i, (count - i) * sizeof(float));
    deliver(step(rest), results);
    __builtin_memcpy(y + i, results, (count - i) * sizeof(Result));
  }
}

void multiply(const float* a, const float* b, float* y, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    y[i] = a[i] * b[i];
  }
}

void subtract(const float* a, const float* b, float* y, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    y[i] = a[i] - b[i];
  }
}

void squareRoots(const float* x, float* y, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    y[i] = __builtin_sqrtf(x[i]);
  }
}

void exponentials(const float* x, double scale, double offset, double* y, std::size_t count) {
  mapInDouble(x, scale, offset, y, count, [](Doubles v) { return exponential(v); });
}

void logarithms(const float* x, double scale, double offset, float* y, std::size_t count) {
  mapInDouble(x, scale, offset, y, count, [](Doubles v) { return logarithm(v); });
}

void logistic(const float* x, float* y, std::size_t count) {
  mapInDouble(x, -1.0, 0.0, y, count, [](Doubles v) { return 1.0 / (1.0 + exponential(v)); });
}

// The product of some units of a panel with some vectors at once: every sum stays in a register, and is
// formed in the same order however many vectors there are.
template <std::size_t kUnits, std::size_t kVectors>
void multiplyAddBlock(const float* panel, std::size_t stride, std::size_t inputs,
                      const float* const* x, float* const* y, std::size_t offset) {
  constexpr std::size_t kSums = kUnits * kPerUnit;
  Floats sums[kVectors][kSums];
  const float* in[kVectors];
#pragma GCC unroll 8
  for (std::size_t v = 0; v < kVectors; ++v) {
    in[v] = x[v];
#pragma GCC unroll 32
    for (std::size_t i = 0; i < kSums; ++i) {
      sums[v][i] = load<Floats>(y[v] + offset + i * kFloats);
    }
  }
  for (std::size_t k = 0; k < inputs; ++k, panel += stride) {
#pragma GCC unroll 32
    for (std::size_t i = 0; i < kSums; ++i) {
      const Floats weights = load<Floats>(panel + i * kFloats);
#pragma GCC unroll 8
      for (std::size_t v = 0; v < kVectors; ++v) {
        sums[v][i] += weights * in[v][k];
      }
    }
  }
#pragma GCC unroll 8
  for (std::size_t v = 0; v < kVectors; ++v) {
#pragma GCC unroll 32
    for (std::size_t i = 0; i < kSums; ++i) {
      store(sums[v][i], y[v] + offset + i * kFloats);
    }
  }
}

using Block = void (*)(const float*, std::size_t, std::size_t, const float* const*, float* const*,
                       std::size_t);

#if defined(__AVX512F__) || defined(__AVX__)
// Sums of one vector: the whole panel at a time, so that it is read in order.
constexpr Block kAlone[] = {multiplyAddBlock<1, 1>, multiplyAddBlock<2, 1>, multiplyAddBlock<3, 1>,
                            multiplyAddBlock<4, 1>, multiplyAddBlock<5, 1>, multiplyAddBlock<6, 1>,
                            multiplyAddBlock<7, 1>};
#else
constexpr Block kAlone[] = {multiplyAddBlock<1, 1>, multiplyAddBlock<2, 1>};
#endif
#if defined(__AVX512F__)
constexpr std::size_t kTogether = 6;
constexpr Block kMany[] = {multiplyAddBlock<1, kTogether>, multiplyAddBlock<2, kTogether>,
                           multiplyAddBlock<3, kTogether>, multiplyAddBlock<4, kTogether>};
#elif defined(__AVX__) || defined(__aarch64__)
constexpr std::size_t kTogether = 6;
constexpr Block kMany[] = {multiplyAddBlock<1, kTogether>};
#else
constexpr std::size_t kTogether = 2;
constexpr Block kMany[] = {multiplyAddBlock<1, kTogether>};
#endif

template <std::size_t kMost>
void multiplyAddUnits(const Block (&blocks)[kMost], const float* panel, std::size_t stride,
                      std::size_t width, std::size_t inputs, const float* const* x, float* const* y,
                      std::size_t offset) {
  for (std::size_t left = width / kUnit; left > 0;) {
    const std::size_t units = left < kMost ? left : kMost;
    blocks[units - 1](panel, stride, inputs, x, y, offset);
    panel += units * kUnit;
    offset += units * kUnit;
    left -= units;
  }
}

void multiplyAdd(const float* panel, std::size_t stride, std::size_t width, std::size_t inputs,
                 std::size_t count, const float* const* x, float* const* y, std::size_t offset) {
  std::size_t v = 0;
  for (; v + kTogether <= count; v += kTogether) {
    multiplyAddUnits(kMany, panel, stride, width, inputs, x + v, y + v, offset);
  }
  for (; v < count; ++v) {
    multiplyAddUnits(kAlone, panel, stride, width, inputs, x + v, y + v, offset);
  }
}

}  // namespace

extern const Kernels ORVEL_KERNELS;
constinit const Kernels ORVEL_KERNELS{
#define ORVEL_TEXT(name) #name
#define ORVEL_NAME(name) ORVEL_TEXT(name)
    .name = ORVEL_NAME(ORVEL_KERNELS),
    .multiply = multiply,
    .subtract = subtract,
    .squareRoots = squareRoots,
    .exponentials = exponentials,
    .logarithms = logarithms,
    .logistic = logistic,
    .multiplyAdd = multiplyAdd,
    .forward = transformForward,
    .backward = transformBackward,
};

}  // namespace ORVEL::UTILS
