#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "noise_canceller/weight_reader.h"

namespace ORVEL::NOISE_CANCELLER {

/** One affine map y = b + W^T x, still as loaded; the name is for messages. */
struct AffinePart {
  const CONTAINERS::Matrix& matrix;
  const std::vector<float>& bias;
  std::string matrixName;
  std::string biasName;
};

/** Element i of a list of matrices and of a list of biases; refuses a list that is too short. */
AffinePart affinePart(const WeightReader& weights, const char* matrixList, const char* biasList,
                      std::size_t i);

/**
 * Affine maps that share their input, laid side by side so that one matrix-vector product computes
 * them all. Immutable: shared by all sessions of a model.
 */
class AffineBank {
 public:
  /** @throws ORVEL_Exception unless every part takes `inputs` values and has a bias per output. */
  AffineBank(std::size_t inputs, const std::vector<AffinePart>& parts);

  std::size_t inputs() const { return inputs_; }
  /** Values of all parts together. */
  std::size_t outputs() const { return bias_.size(); }

  /** y (outputs() values, one part after the other) = biases + matrices^T x (inputs() values). */
  void apply(const float* x, float* y) const;

 private:
  std::size_t inputs_;
  std::vector<float> bias_;
  std::vector<float> rows_;
};

}  // namespace ORVEL::NOISE_CANCELLER
