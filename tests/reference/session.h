// A whole session: caller's samples in, caller's samples or scores out.
#pragma once

#include <cstdint>
#include <memory>

#include "tests/reference/cleaner.h"

namespace orvel_test {

// Converts a stream between two rates; its samples are delivered in frames of one size, behind a
// run of zeros that the first frame determines.
class RateChange {
 public:
  RateChange(double inSize, double outSize);
  Signal process(const Signal& in);

 private:
  Signal convert(const Floats& in);
  double factor_;
  std::shared_ptr<void> handle_;
  Signal stream_;
  size_t delivered_ = 0;
};

// The voice-activity detector over a stream that is kept whole.
class Vad {
 public:
  explicit Vad(const TestModel& model) : model_(model), network_(model_) {}
  double score(const Signal& samples);

 private:
  Signal features() const;
  TestModel model_;
  Network network_;
  double level_ = 2000.0 * 2000.0;
  Signal levelled_;              // all samples after the automatic gain
  std::vector<Signal> history_;  // normalised features of every frame
};

class Session {
 public:
  Session(const TestModel& model, const Keys& keys, int inRate, int outRate, int frameMs);
  // One frame; the result is in 16-bit scale, clamped, not yet converted.
  Signal clean(const Signal& samples);
  double vad(const Signal& samples);
  Cleaner& cleaner() { return *cleaner_; }
  size_t inputSize() const { return inputSize_; }
  size_t outputSize() const { return outputSize_; }

 private:
  Signal toModelRate(const Signal& samples);
  size_t inputSize_, outputSize_;
  RateChange in_, out_;
  std::unique_ptr<Cleaner> cleaner_;
  std::unique_ptr<Vad> vad_;
};

}  // namespace orvel_test
