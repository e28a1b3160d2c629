#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <vector>

#include "containers/matrix.h"
#include "weights/weight.h"

namespace ORVEL::NOISE_CANCELLER {

/** Throws the ORVEL_Exception of weights that do not fit together: what disagrees, with both sizes. */
[[noreturn]] void refuseWeights(const std::string& message);

/** Refuses unless the two sizes agree: "NAME is ACTUAL, WHAT is EXPECTED". */
void requireSize(const std::string& name, std::size_t actual, const std::string& what,
                 std::size_t expected);

/** Reads required parameters of a weight set; every reader throws ORVEL_Exception for a missing one. */
class WeightReader {
 public:
  using Matrices = std::vector<CONTAINERS::Matrix>;
  using Vectors = std::vector<std::vector<float>>;

  explicit WeightReader(const WEIGHTS::Weight& weight) : weight_(weight) {}

  /** A whole number that counts something: refused when it is below `least`. */
  std::size_t count(const char* name, std::size_t least = 1) const;
  const std::vector<float>& vector(const char* name) const;
  const Vectors& vectors(const char* name) const;
  const Matrices& matrices(const char* name) const;

  /** Throws for the first of these names that is missing, in this order. */
  void requireMatrices(std::initializer_list<const char*> names) const;
  void requireVectors(std::initializer_list<const char*> names) const;
  void requireInts(std::initializer_list<const char*> names) const;

  const WEIGHTS::Weight& weight() const { return weight_; }

 private:
  const WEIGHTS::Weight& weight_;
};

}  // namespace ORVEL::NOISE_CANCELLER
