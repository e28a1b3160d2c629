// Whole sessions of every model at its own rate and at 8, 16 and 48 kHz, and beside them the floor:
// what their matrix products and transforms cost with nothing around.
#include <benchmark/benchmark.h>

#include <set>
#include <string>
#include <vector>

#include "bench/catalog.h"
#include "bench/floor.h"

namespace {

using namespace orvel_bench;

// One second of audio per iteration: every frame is as it comes, with a hop, two or none.
constexpr int kFrames = 100;

void session(benchmark::State& state, const BenchModel& model, int rate) {
  void* handle = openSession(model, rate, rate);
  if (handle == nullptr) {
    state.SkipWithError("no session");
    return;
  }
  const std::vector<float> audio = benchSignal(rate, 1.0);
  std::vector<float> out(static_cast<std::size_t>(rate) / 100);
  const std::size_t step = out.size();
  for (auto _ : state) {
    for (std::size_t i = 0; i < kFrames; ++i)
      processFrame(model, handle, audio.data() + i * step, rate, out.data(), rate);
  }
  closeSession(model, handle);
}

template <class Work>
void perSecond(benchmark::State& state, const BenchModel& model, Work work) {
  HopFloor hop(*model.weight);
  const double hops = hopsPerSecond(model);
  double due = 0.0;
  for (auto _ : state) {
    for (due += hops; due >= 1.0; due -= 1.0)
      work(hop);
  }
  state.counters["weights"] = static_cast<double>(hop.weights());
  state.counters["hops"] = hops;
}

void registerModel(const BenchModel& model) {
  const auto name = [&](const char* what) { return std::string(what) + "/" + model.name; };
  for (const int rate : std::set<int>{model.rate, 8000, 16000, 48000}) {
    const std::string label = name("session") + "/" + std::to_string(rate);
    benchmark::RegisterBenchmark(label.c_str(), session, model, rate);
  }
  using benchmark::State;
  benchmark::RegisterBenchmark(name("products").c_str(), [&](State& state) {
    perSecond(state, model, [](HopFloor& hop) { hop.multiply(); });
  });
  benchmark::RegisterBenchmark(name("transforms").c_str(), [&](State& state) {
    perSecond(state, model, [](HopFloor& hop) { hop.transform(); });
  });
  benchmark::RegisterBenchmark(name("weightReads").c_str(), [&](State& state) {
    perSecond(state, model, [](HopFloor& hop) { hop.read(); });
  });
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  for (const BenchModel& model : allModels())
    registerModel(model);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
