// The models that are measured: those in models/, and weight sets of random values in sizes around
// theirs.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "weights/weight.h"

namespace orvel_bench {

struct BenchModel {
  std::string name;
  bool shipped;
  bool voice;
  int rate;
  /** Loaded a second time, beside the library's copy, to know its layers. */
  std::shared_ptr<const ORVEL::WEIGHTS::Weight> weight;
};

// Initialises the library and loads every model there is, once per process.
const std::vector<BenchModel>& allModels();

// Opens a session of the model for frames of 10 ms; null when it fails.
void* openSession(const BenchModel& model, int inRate, int outRate);
void closeSession(const BenchModel& model, void* session);

// One frame of 10 ms.
void processFrame(const BenchModel& model, void* session, const float* in, int inRate, float* out,
                  int outRate);

// Hops that the model makes of a second of audio.
double hopsPerSecond(const BenchModel& model);

// Speech-like sound with noise at that rate.
std::vector<float> benchSignal(int rate, double seconds);

}  // namespace orvel_bench
