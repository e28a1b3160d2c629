// Whole sessions of every model at its own rate and at 8, 16 and 48 kHz, and beside them the floor:
// what a hop cannot do without, the matrix-vector products of the layers and the transforms, by the
// library's own means and with nothing around them.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <complex>
#include <cstring>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/support.h"
#include "containers/matrix.h"
#include "noise_canceller/cleaner_versions.h"
#include "utils/arithmetic.h"
#include "utils/fft.h"
#include "weights/control_file.h"
#include "weights/weight.h"

namespace {

using namespace orvel_bench;
using ORVEL::CONTAINERS::Matrix;
using ORVEL::WEIGHTS::Weight;

struct LayerSize {
  std::size_t inputs;
  std::size_t outputs;
  std::size_t weights() const { return inputs * outputs; }
};

void read(Weight& weight, const BenchModel& model) {
  if (model.random) {
    weight.parse(orvel_test::makeModel(*model.random).weights().bytes());
    return;
  }
  const auto entries = ORVEL::WEIGHTS::readControlFile(model.control);
  if (!entries) throw std::runtime_error("cannot read " + model.control.string());
  for (const auto& [key, value] : *entries)
    if (key == "WEIGHT") weight.load((model.control.parent_path() / value).c_str());
}

// Layers as they are evaluated: the matrices that share an input side by side.
std::vector<LayerSize> layersOf(const BenchModel& model) {
  Weight weight;
  read(weight, model);
  const bool voice = model.voice();
  using Matrices = std::vector<Matrix>;
  const auto& nonLinear = weight.values().getReference<Matrices>("WeightNonLinear");
  const auto& linear = weight.values().getReference<Matrices>("WeightLinear");
  const auto gate = weight.values().get<Matrices>("WeightGRU");
  const std::size_t count = voice || gate == nullptr ? linear.size() : nonLinear.size();
  std::vector<LayerSize> layers;
  for (std::size_t i = 0; i + 1 < count; ++i)
    layers.push_back({nonLinear[i].dim0, std::size_t{nonLinear[i].dim1} + linear[i].dim1});
  if (gate != nullptr && !layers.empty()) layers.front().outputs += gate->front().dim1;
  const Matrix& last = voice ? linear.back() : nonLinear[count - 1];
  layers.push_back({last.dim0, last.dim1});
  return layers;
}

// Forward and backward together; a version with a window of its own behind the mask also transforms the
// frame before the window.
int transformsOf(const BenchModel& model) {
  if (model.voice()) return 1;
  const auto* version = ORVEL::NOISE_CANCELLER::findCleanerVersion(model.info.version);
  return version->choosesWindowAfter ? 3 : 2;
}

class HopFloor {
 public:
  explicit HopFloor(const BenchModel& model)
      : layers_(layersOf(model)),
        transforms_(transformsOf(model)),
        fft_(ORVEL::UTILS::createFFT(static_cast<unsigned>(model.info.frameLength))),
        frame_(model.info.frameLength, 1000.0F),
        spectrum_(model.info.frameLength / 2 + 1) {
    std::size_t widest = 0;
    for (const LayerSize& layer : layers_) {
      widest = std::max({widest, layer.inputs, layer.outputs});
      matrices_.emplace_back(layer.inputs, layer.outputs,
                             ORVEL::UTILS::AlignedFloats(layer.weights(), 0.01F));
      weights_.emplace_back(layer.weights(), 0.01F);
    }
    x_.assign(widest, 0.5F);
    y_.assign(widest, 0.0F);
  }

  double weights() const {
    double sum = 0.0;
    for (const LayerSize& layer : layers_)
      sum += static_cast<double>(layer.weights());
    return sum;
  }

  void multiply() {
    for (const auto& matrix : matrices_) {
      matrix.multiplyAdd(x_.data(), y_.data());
      benchmark::DoNotOptimize(y_.data());
    }
  }

  void transform() {
    for (int i = 0; i + 1 < transforms_; ++i)
      benchmark::DoNotOptimize(fft_->forward(frame_, spectrum_));
    benchmark::DoNotOptimize(transforms_ == 1 ? fft_->forward(frame_, spectrum_)
                                              : fft_->backward(spectrum_, frame_));
  }

  // Every weight once, as fast as memory gives it: the C library looks for a byte that is not there.
  void read() {
    for (const auto& weights : weights_)
      benchmark::DoNotOptimize(std::memchr(weights.data(), 0x01, weights.size() * sizeof(float)));
  }

 private:
  std::vector<LayerSize> layers_;
  int transforms_;
  std::shared_ptr<ORVEL::UTILS::FFT> fft_;
  std::vector<float> frame_;
  std::vector<std::complex<float>> spectrum_;
  std::vector<ORVEL::UTILS::WeightMatrix> matrices_;
  std::vector<std::vector<float>> weights_;
  std::vector<float> x_, y_;
};

// One second of audio per iteration: every frame is as it comes, with a hop, two or none.
void session(benchmark::State& state, const BenchModel& model, int rate) {
  BenchSession open(model, rate, rate);
  const std::vector<float> audio = benchSignal(rate, 1.0);
  std::vector<float> out(open.outputSize());
  for (auto _ : state) {
    for (std::size_t at = 0; at < audio.size(); at += open.inputSize())
      open.process(std::span(audio).subspan(at), out);
  }
}

template <class Work>
void perSecond(benchmark::State& state, const BenchModel& model, Work work) {
  HopFloor hop(model);
  double due = 0.0;
  for (auto _ : state) {
    for (due += model.hopsPerSecond(); due >= 1.0; due -= 1.0)
      work(hop);
  }
  state.counters["weights"] = hop.weights();
  state.counters["hops"] = model.hopsPerSecond();
}

void registerModel(const BenchModel& model) {
  const auto name = [&](const char* what) { return std::string(what) + "/" + model.info.name; };
  for (const int rate : std::set<int>{model.info.sampleRate, 8000, 16000, 48000}) {
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
