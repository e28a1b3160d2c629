// The reported latency against the delay of a pulse sent through an all-pass model.
#include <gtest/gtest.h>

#include "tests/support/library.h"
#include "tests/support/signals.h"

namespace orvel_test {
namespace {

void expectLatency(const orvel::Library& library, const orvel::CleanerOptions& options) {
  orvel::Cleaner cleaner(library, options);
  const int centre = options.inputRate / 10;
  const std::vector<float> out = cleanStream(cleaner, pulse(options.inputRate, 0.24, centre));
  const double expected = static_cast<double>(centre) * options.outputRate / options.inputRate;
  EXPECT_NEAR(centreOf(out) - expected, static_cast<double>(cleaner.latency()), 1.0)
      << options.model << ' ' << options.inputRate << " -> " << options.outputRate << ", "
      << options.frameMs;
}

TEST(Latency, EveryPairOfRates) {
  orvel::Library library;
  load(library, "pass16", makeAllPass(16000));
  for (const int inRate : orvel::kSampleRates) {
    for (const int outRate : orvel::kSampleRates)
      expectLatency(library, {inRate, outRate, 10, "pass16"});
  }
}

TEST(Latency, EveryModelFrameAndDuration) {
  orvel::Library library;
  for (const int rate : {8000, 16000, 32000}) {
    for (const int frameMs : {30, 32}) {
      const std::string name =
          "pass" + std::to_string(rate / 1000) + "k" + std::to_string(frameMs) + "ms";
      load(library, name, makeAllPass(rate, frameMs));
      for (const int ms : orvel::kFrameDurations) {
        expectLatency(library, {rate, rate, ms, name});
        expectLatency(library, {44100, 48000, ms, name});
        expectLatency(library, {96000, 12000, ms, name});
      }
    }
  }
}

}  // namespace
}  // namespace orvel_test
