// Small weight sets in plain form: the reference computes with them, the library loads their bytes.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "noise_canceller/cleaner_versions.h"
#include "tests/support/weight_builder.h"

namespace orvel_test {

using Keys = std::map<std::string, std::string>;  // tuning keys of one control file
using CleanerTraits = ORVEL::NOISE_CANCELLER::CleanerTraits;

struct TestModel {
  std::string version;
  int rate = 0, frameLength = 0, step = 0, begin = 0, end = 0, preview = 0, nat = 0, bins = 0;
  Floats mu, sd;
  std::vector<Dense> linear, nonLinear, gru;
  std::vector<Floats> linearBias, nonLinearBias, gruBias, multiplier, reducer;
  Floats minMax, bestF1;  // voice activity only; empty: not stored

  // What the library says about the version, which it must know.
  const CleanerTraits& traits() const;
  // Which generation of noise cleaner, from 1; 0 for voice activity.
  int generation() const;
  int band() const { return end - begin; }
  WeightBuilder weights() const;
};

// What a random model is made of. Random weights give every bin its own gain, so that a swapped
// index or a dropped stage shows in the output.
struct Shape {
  std::string version = "0.0.1";
  int rate = 16000;
  int frameMs = 32;
  int begin = 2;
  int band = 48;
  int preview = 3;
  int nat = 4;
  std::vector<int> hidden = {12, 12};
  int compress = -1;   // compression rate of the bands; negative: the version's own
  int gateWidth = 12;  // recurrent networks: width of the gate, 1 or hidden[0]
  unsigned seed = 1;
};

TestModel makeModel(const Shape& shape);

// One sigmoid layer without input weights: every bin of [0, end) gets the same mask value.
TestModel makeFlatModel(const std::string& version, int rate, int frameMs, float bias);

// A mask of exactly 1 from DC to the highest bin, in the version whose windows add up to 1.
inline TestModel makeAllPass(int rate, int frameMs = 32) {
  return makeFlatModel("0.0.2", rate, frameMs, 60.0F);
}

// A voice-activity set of 240 samples a frame (8 or 16 kHz).
TestModel makeVadModel(int rate = 8000, bool calibrated = true, int gateWidth = 10,
                       unsigned seed = 5);

}  // namespace orvel_test
