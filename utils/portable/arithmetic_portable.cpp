#include "utils/arithmetic.h"

#include <algorithm>

#include "utils/kernels/kernel_sets.h"

namespace ORVEL::UTILS {

namespace {

AlignedFloats inPanels(std::size_t inputs, std::size_t outputs, const AlignedFloats& rows) {
  std::size_t filled = 0;
  for (std::size_t at = 0; at < outputs; at += panelWidth(outputs - at)) {
    filled += panelWidth(outputs - at);
  }
  AlignedFloats panels(inputs * filled, 0.0F);
  float* to = panels.data();
  for (std::size_t at = 0; at < outputs;) {
    const std::size_t width = panelWidth(outputs - at);
    const std::size_t used = std::min(width, outputs - at);
    for (std::size_t row = 0; row < inputs; ++row, to += width) {
      std::copy_n(rows.data() + row * outputs + at, used, to);
    }
    at += width;
  }
  return panels;
}

}  // namespace

void multiply(const float* a, const float* b, float* y, std::size_t count) {
  kernels().multiply(a, b, y, count);
}

void subtract(const float* a, const float* b, float* y, std::size_t count) {
  kernels().subtract(a, b, y, count);
}

void squareRoots(const float* x, float* y, std::size_t count) {
  kernels().squareRoots(x, y, count);
}

void exponentials(const float* x, double scale, double offset, double* y, std::size_t count) {
  kernels().exponentials(x, scale, offset, y, count);
}

void logarithms(const float* x, double scale, double offset, float* y, std::size_t count) {
  kernels().logarithms(x, scale, offset, y, count);
}

void logistic(const float* x, float* y, std::size_t count) { kernels().logistic(x, y, count); }

WeightMatrix::WeightMatrix(std::size_t inputs, std::size_t outputs, AlignedFloats rows)
    : inputs_(inputs), outputs_(outputs), values_(inPanels(inputs, outputs, rows)) {}

void WeightMatrix::multiplyAdd(const float* x, float* y) const { multiplyAdd(1, &x, &y); }

void WeightMatrix::multiplyAdd(std::size_t count, const float* const* x, float* const* y) const {
  const float* panel = values_.data();
  for (std::size_t at = 0; at < outputs_;) {
    const std::size_t width = panelWidth(outputs_ - at);
    multiplyAddPanel({panel, width, std::min(width, outputs_ - at), inputs_}, count, x, y, at);
    panel += width * inputs_;
    at += width;
  }
}

}  // namespace ORVEL::UTILS
