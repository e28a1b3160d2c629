// What a model's hop cannot do without: the matrix-vector products of its layers and its transforms,
// by the library's own means, with nothing around them.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "utils/fft.h"
#include "weights/weight.h"

namespace orvel_bench {

struct LayerSize {
  std::size_t inputs;
  std::size_t outputs;
  std::size_t weights() const { return inputs * outputs; }
};

// Layers as they are evaluated: the matrices that share an input side by side.
std::vector<LayerSize> layersOf(const ORVEL::WEIGHTS::Weight& weight);

// Transforms of one hop, forward and backward together.
int transformsOf(const ORVEL::WEIGHTS::Weight& weight);

class HopFloor {
 public:
  explicit HopFloor(const ORVEL::WEIGHTS::Weight& weight);

  std::size_t weights() const;
  void multiply();   // the products
  void transform();  // the transforms
  void read();       // every weight once, as fast as memory gives it

 private:
  std::vector<LayerSize> layers_;
  std::vector<std::vector<float>> matrices_;
  std::vector<float> x_, y_;
  std::shared_ptr<ORVEL::UTILS::FFT> fft_;
  int transforms_;
  std::vector<float> frame_;
  std::vector<std::complex<float>> spectrum_;
};

}  // namespace orvel_bench
