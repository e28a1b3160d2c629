#include "noise_canceller/weight_reader.h"

#include "utils/orvel_exception.h"

namespace ORVEL::NOISE_CANCELLER {

void refuseWeights(const std::string& message) {
  throw UTILS::ORVEL_Exception(message.c_str(), "noise_canceller/weight_reader", 0,
                               "refuseWeights");
}

void requireSize(const std::string& name, std::size_t actual, const std::string& what,
                 std::size_t expected) {
  if (actual != expected) {
    refuseWeights(name + " is " + std::to_string(actual) + ", " + what + " is " +
                  std::to_string(expected));
  }
}

std::size_t WeightReader::count(const char* name, std::size_t least) const {
  const int value = weight_.values().getReference<int>(name);
  if (value < 0 || static_cast<std::size_t>(value) < least) {
    refuseWeights(std::string(name) + " is " + std::to_string(value) + ", the least allowed is " +
                  std::to_string(least));
  }
  return static_cast<std::size_t>(value);
}

const std::vector<float>& WeightReader::vector(const char* name) const {
  return weight_.values().getReference<std::vector<float>>(name);
}

const WeightReader::Vectors& WeightReader::vectors(const char* name) const {
  return weight_.values().getReference<Vectors>(name);
}

const WeightReader::Matrices& WeightReader::matrices(const char* name) const {
  return weight_.values().getReference<Matrices>(name);
}

void WeightReader::requireMatrices(std::initializer_list<const char*> names) const {
  for (const char* name : names) {
    matrices(name);
  }
}

void WeightReader::requireVectors(std::initializer_list<const char*> names) const {
  for (const char* name : names) {
    vectors(name);
  }
}

void WeightReader::requireInts(std::initializer_list<const char*> names) const {
  for (const char* name : names) {
    weight_.values().getReference<int>(name);
  }
}

}  // namespace ORVEL::NOISE_CANCELLER
