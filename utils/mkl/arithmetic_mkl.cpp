#include <mkl_cblas.h>
#include <mkl_vml.h>

#include <algorithm>
#include <utility>

#include "utils/arithmetic.h"
#include "utils/kernels/kernel_sets.h"

namespace ORVEL::UTILS {

namespace {

/** Numbers out of range give what the scalar functions give, silently. */
constexpr MKL_INT64 kQuietly = VML_ERRMODE_IGNORE | VML_FTZDAZ_CURRENT;
/** Low accuracy in double precision is far more than a float holds. */
constexpr MKL_INT64 kMode = VML_LA | kQuietly;
/** What stays in the nearest cache. */
constexpr std::size_t kPiece = 128;

MKL_INT length(std::size_t count) { return static_cast<MKL_INT>(count); }

void scaleAndShift(const float* x, double scale, double offset, double* y, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    y[i] = scale * static_cast<double>(x[i]) + offset;
  }
}

/** y = last(function(scale * x + offset)). */
template <class Last>
void mapInDouble(const float* x, double scale, double offset, float* y, std::size_t count,
                 void (*function)(MKL_INT, const double*, double*, MKL_INT64), Last last) {
  // Always aligned alike, so that sessions agree to the last bit.
  alignas(64) double values[kPiece];
  for (std::size_t begin = 0; begin < count; begin += kPiece) {
    const std::size_t size = std::min(kPiece, count - begin);
    scaleAndShift(x + begin, scale, offset, values, size);
    function(length(size), values, values, kMode);
    for (std::size_t i = 0; i < size; ++i) {
      y[begin + i] = static_cast<float>(last(values[i]));
    }
  }
}

}  // namespace

void multiply(const float* a, const float* b, float* y, std::size_t count) {
  vsMul(length(count), a, b, y);
}

void subtract(const float* a, const float* b, float* y, std::size_t count) {
  vsSub(length(count), a, b, y);
}

void squareRoots(const float* x, float* y, std::size_t count) {
  vmsSqrt(length(count), x, y, VML_HA | kQuietly);
}

void exponentials(const float* x, double scale, double offset, double* y, std::size_t count) {
  alignas(64) double values[kPiece];
  for (std::size_t begin = 0; begin < count; begin += kPiece) {
    const std::size_t size = std::min(kPiece, count - begin);
    scaleAndShift(x + begin, scale, offset, values, size);
    vmdExp(length(size), values, values, kMode);
    std::copy_n(values, size, y + begin);
  }
}

void logarithms(const float* x, double scale, double offset, float* y, std::size_t count) {
  mapInDouble(x, scale, offset, y, count, vmdLn, [](double logarithm) { return logarithm; });
}

void logistic(const float* x, float* y, std::size_t count) {
  mapInDouble(x, -1.0, 0.0, y, count, vmdExp, [](double power) { return 1.0 / (1.0 + power); });
}

WeightMatrix::WeightMatrix(std::size_t inputs, std::size_t outputs, AlignedFloats rows)
    : inputs_(inputs), outputs_(outputs), values_(std::move(rows)) {
  values_.resize(values_.size() + kUnit);
}

void WeightMatrix::multiplyAdd(const float* x, float* y) const {
  cblas_sgemv(CblasRowMajor, CblasTrans, length(inputs_), length(outputs_), 1.0F, values_.data(),
              length(outputs_), x, 1, 1.0F, y, 1);
}

// MKL's matrix-matrix product takes memory when it is called and would add 11 MB to the library.
void WeightMatrix::multiplyAdd(std::size_t count, const float* const* x, float* const* y) const {
  // The kernels read rows in pieces, which pays from as many vectors as they take at once.
  constexpr std::size_t kLeastTogether = 6;
  if (count < kLeastTogether) {
    for (std::size_t i = 0; i < count; ++i) {
      multiplyAdd(x[i], y[i]);
    }
    return;
  }
  for (std::size_t at = 0; at < outputs_;) {
    const std::size_t width = panelWidth(outputs_ - at);
    multiplyAddPanel({values_.data() + at, outputs_, std::min(width, outputs_ - at), inputs_},
                     count, x, y, at);
    at += width;
  }
}

}  // namespace ORVEL::UTILS
