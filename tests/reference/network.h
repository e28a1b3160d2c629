// The mask networks as plain loops in double precision.
#pragma once

#include "tests/reference/signal.h"
#include "tests/support/test_model.h"

namespace orvel_test {

// Recurrent ones have a gated state that enters the next frame, not this one.
class Network {
 public:
  explicit Network(const TestModel& model)
      : model_(model), state_(model.gru.empty() ? 0 : model.nonLinear.back().rows, 0.0) {}
  Signal mask(const Signal& x);  // logistic output
  double raw(const Signal& x);   // first value of a linear output

 private:
  Signal hidden(const Signal& x);
  const TestModel& model_;
  Signal state_;
};

}  // namespace orvel_test
