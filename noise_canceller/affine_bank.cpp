#include "noise_canceller/affine_bank.h"

#include <mkl_cblas.h>

#include <algorithm>

namespace ORVEL::NOISE_CANCELLER {

namespace {

std::string element(const char* list, std::size_t i) {
  return std::string(list) + "[" + std::to_string(i) + "]";
}

template <class List>
void requireElement(const List& list, const char* name, std::size_t i) {
  if (list.size() <= i) {
    refuseWeights(std::string(name) + " has " + std::to_string(list.size()) +
                  " elements, the network needs at least " + std::to_string(i + 1));
  }
}

void checkPart(std::size_t inputs, const AffinePart& part) {
  const CONTAINERS::Matrix& matrix = part.matrix;
  requireSize(part.matrixName + " rows", matrix.dim0, "the length of its input", inputs);
  requireSize(part.matrixName + " columns", matrix.dim1, "the length of " + part.biasName,
              part.bias.size());
  requireSize(part.matrixName + " elements", matrix.data.size(), "rows x columns",
              std::size_t{matrix.dim0} * matrix.dim1);
  if (part.bias.empty()) {
    refuseWeights(part.biasName + " is empty, the least allowed is 1");
  }
}

}  // namespace

AffinePart affinePart(const WeightReader& weights, const char* matrixList, const char* biasList,
                      std::size_t i) {
  const auto& matrices = weights.matrices(matrixList);
  const auto& biases = weights.vectors(biasList);
  requireElement(matrices, matrixList, i);
  requireElement(biases, biasList, i);
  return {matrices[i], biases[i], element(matrixList, i), element(biasList, i)};
}

AffineBank::AffineBank(std::size_t inputs, const std::vector<AffinePart>& parts) : inputs_(inputs) {
  for (const AffinePart& part : parts) {
    checkPart(inputs, part);
    bias_.insert(bias_.end(), part.bias.begin(), part.bias.end());
  }
  rows_.resize(inputs * bias_.size());
  auto out = rows_.begin();
  for (std::size_t row = 0; row < inputs; ++row) {
    for (const AffinePart& part : parts) {
      out = std::copy_n(
          part.matrix.data.begin() + static_cast<std::ptrdiff_t>(row * part.matrix.dim1),
          part.matrix.dim1, out);
    }
  }
}

void AffineBank::apply(const float* x, float* y) const {
  std::copy(bias_.begin(), bias_.end(), y);
  const auto columns = static_cast<MKL_INT>(bias_.size());
  cblas_sgemv(CblasRowMajor, CblasTrans, static_cast<MKL_INT>(inputs_), columns, 1.0F, rows_.data(),
              columns, x, 1, 1.0F, y, 1);
}

}  // namespace ORVEL::NOISE_CANCELLER
