#pragma once

#include <mkl_vml.h>

#include <algorithm>
#include <complex>
#include <cstddef>

/** Functions of whole vectors; results may replace their arguments. */
namespace ORVEL::NOISE_CANCELLER {

namespace detail {

/** Numbers out of range give what the scalar functions give, silently. */
inline constexpr MKL_INT64 kQuietly = VML_ERRMODE_IGNORE | VML_FTZDAZ_CURRENT;

/** y = last(function(first(x)), x), in pieces that stay in the nearest cache. */
template <class First, class Last>
void mapInDouble(const float* x, float* y, std::size_t count, First first,
                 void (*function)(MKL_INT, const double*, double*, MKL_INT64), Last last) {
  constexpr std::size_t kPiece = 128;
  // Always aligned alike, so that sessions agree to the last bit.
  alignas(64) double values[kPiece];
  for (std::size_t begin = 0; begin < count; begin += kPiece) {
    const std::size_t length = std::min(kPiece, count - begin);
    for (std::size_t i = 0; i < length; ++i) {
      values[i] = first(static_cast<double>(x[begin + i]));
    }
    // Low accuracy in double precision is far more than a float holds.
    function(static_cast<MKL_INT>(length), values, values, VML_LA | kQuietly);
    for (std::size_t i = 0; i < length; ++i) {
      y[begin + i] = static_cast<float>(last(values[i], static_cast<double>(x[begin + i])));
    }
  }
}

}  // namespace detail

/** y = combine(e^(scale * x + offset), x), in double precision. */
template <class Combine>
void combineWithExponentials(const float* x, double scale, double offset, float* y,
                             std::size_t count, Combine combine) {
  detail::mapInDouble(
      x, y, count, [=](double value) { return scale * value + offset; }, vmdExp, combine);
}

/** y = 1 / (1 + e^-x), in double precision. */
inline void sigmoids(const float* x, float* y, std::size_t count) {
  combineWithExponentials(x, -1.0, 0.0, y, count,
                          [](double power, double) { return 1.0 / (1.0 + power); });
}

/** y = ln(scale * x + offset), in double precision. */
inline void logarithms(const float* x, double scale, double offset, float* y, std::size_t count) {
  detail::mapInDouble(
      x, y, count, [=](double value) { return scale * value + offset; }, vmdLn,
      [](double logarithm, double) { return logarithm; });
}

inline void squareRoots(const float* x, float* y, std::size_t count) {
  vmsSqrt(static_cast<MKL_INT>(count), x, y, VML_HA | detail::kQuietly);
}

/** Square of a bin's magnitude. */
inline double powerOf(std::complex<float> bin) {
  const double re = bin.real();
  const double im = bin.imag();
  return re * re + im * im;
}

}  // namespace ORVEL::NOISE_CANCELLER
