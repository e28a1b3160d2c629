// The voice-activity detector over a stream that is kept whole.
#pragma once

#include "tests/reference/network.h"

namespace orvel_test {

class Vad {
 public:
  explicit Vad(const TestModel& model) : model_(model), network_(model_) {}
  double score(const Signal& samples);

 private:
  Signal features() const;
  TestModel model_;
  Recurrent network_;
  double level_ = 2000.0 * 2000.0;
  Signal levelled_;              // all samples after the automatic gain
  std::vector<Signal> history_;  // normalised features of every frame
};

}  // namespace orvel_test
