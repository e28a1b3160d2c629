// What the programs that measure whole sessions share: the models, their sessions, audio, processor
// time, memory and arguments.
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <orvel/orvel.hpp>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "tests/support/test_model.h"

namespace orvel_bench {

// A model of models/, or a weight set of random values in a size around theirs.
struct BenchModel {
  orvel::Model info;
  std::filesystem::path control;            // of a shipped one
  std::optional<orvel_test::Shape> random;  // of the others

  bool voice() const { return info.kind == orvel::ModelKind::voiceActivity; }
  double hopsPerSecond() const { return info.sampleRate / static_cast<double>(info.hop); }
};

// With every model that there is.
orvel::Library& benchLibrary();

// Loads every model there is, once per process.
const std::vector<BenchModel>& allModels();

// A session of either kind for frames of 10 ms.
class BenchSession {
 public:
  // The output rate of a voice-activity model does not matter: it gives one score.
  BenchSession(const BenchModel& model, int inRate, int outRate);
  std::size_t inputSize() const;
  std::size_t outputSize() const;
  // `in` holds at least inputSize() samples, `out` has room for outputSize().
  void process(std::span<const float> in, std::span<float> out);

 private:
  std::variant<orvel::Cleaner, orvel::Detector> session_;
};

// Speech-like sound with noise at that rate.
std::vector<float> benchSignal(int rate, double seconds);

// Processor time of the calling thread: what others do on the machine is not in it.
double threadNanoseconds();

template <class Work>
double nanosecondsOf(Work&& work) {
  const double before = threadNanoseconds();
  work();
  return threadNanoseconds() - before;
}

// Memory that the process holds in RAM, bytes.
double residentBytes();

// Optional numbers of the command line, each above 0, in place of the defaults; with anything else
// the program ends with status 2 and its usage.
std::vector<double> argumentsOr(std::vector<double> defaults, int argc, char** argv,
                                const char* usage);

}  // namespace orvel_bench
