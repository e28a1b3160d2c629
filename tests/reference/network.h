// The mask networks as plain loops in double precision.
#pragma once

#include "tests/reference/fourier.h"
#include "tests/support/test_model.h"

namespace orvel_test {

// Generations 1 to 4; the per-element scale and shift exist in generations 1 and 2 only.
Signal feedForwardMask(const TestModel& model, Signal x);

// Generation 5 and voice activity: a gated state that enters the next frame, not this one.
class Recurrent {
 public:
  explicit Recurrent(const TestModel& model)
      : model_(model), state_(model.nonLinear.back().rows, 0.0) {}
  Signal mask(const Signal& x);  // logistic output
  double raw(const Signal& x);   // first value of a linear output

 private:
  Signal hidden(const Signal& x);
  const TestModel& model_;
  Signal state_;
};

}  // namespace orvel_test
