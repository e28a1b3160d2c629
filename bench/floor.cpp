#include "bench/floor.h"

#include <benchmark/benchmark.h>
#include <mkl_cblas.h>

#include <algorithm>

#include "containers/matrix.h"

namespace orvel_bench {
namespace {

using ORVEL::CONTAINERS::Matrix;
using ORVEL::WEIGHTS::Weight;
using Matrices = std::vector<Matrix>;

const Matrices& matrices(const Weight& weight, const char* name) {
  return weight.values().getReference<Matrices>(name);
}

bool isVoice(const Weight& weight) {
  return ORVEL::WEIGHTS::isVoiceActivityVersion(ORVEL::WEIGHTS::getWeightVersion(weight));
}

}  // namespace

std::vector<LayerSize> layersOf(const Weight& weight) {
  const Matrices& nonLinear = matrices(weight, "WeightNonLinear");
  const Matrices& linear = matrices(weight, "WeightLinear");
  const auto gate = weight.values().get<Matrices>("WeightGRU");
  const std::size_t count = isVoice(weight) || gate == nullptr ? linear.size() : nonLinear.size();
  std::vector<LayerSize> layers;
  for (std::size_t i = 0; i + 1 < count; ++i) {
    layers.push_back({nonLinear[i].dim0, std::size_t{nonLinear[i].dim1} + linear[i].dim1});
  }
  if (gate != nullptr && !layers.empty()) layers.front().outputs += gate->front().dim1;
  const Matrix& last = isVoice(weight) ? linear.back() : nonLinear[count - 1];
  layers.push_back({last.dim0, last.dim1});
  return layers;
}

int transformsOf(const Weight& weight) {
  if (isVoice(weight)) return 1;
  // The first version transforms the frame before the window as well.
  return ORVEL::WEIGHTS::getWeightVersion(weight) == "0.0.1" ? 3 : 2;
}

HopFloor::HopFloor(const Weight& weight)
    : layers_(layersOf(weight)), transforms_(transformsOf(weight)) {
  std::size_t widest = 0;
  for (const LayerSize& layer : layers_) {
    widest = std::max({widest, layer.inputs, layer.outputs});
    matrices_.emplace_back(layer.weights(), 0.01F);
  }
  x_.assign(widest, 0.5F);
  y_.assign(widest, 0.0F);
  const auto length = static_cast<unsigned>(weight.values().getReference<int>("FrameLength"));
  fft_ = ORVEL::UTILS::createFFT(length);
  frame_.assign(length, 1000.0F);
  spectrum_.resize(length / 2 + 1);
}

std::size_t HopFloor::weights() const {
  std::size_t sum = 0;
  for (const LayerSize& layer : layers_)
    sum += layer.weights();
  return sum;
}

void HopFloor::multiply() {
  for (std::size_t i = 0; i < layers_.size(); ++i) {
    const auto rows = static_cast<MKL_INT>(layers_[i].inputs);
    const auto columns = static_cast<MKL_INT>(layers_[i].outputs);
    cblas_sgemv(CblasRowMajor, CblasTrans, rows, columns, 1.0F, matrices_[i].data(), columns,
                x_.data(), 1, 0.0F, y_.data(), 1);
    benchmark::DoNotOptimize(y_.data());
  }
}

void HopFloor::transform() {
  for (int i = 0; i + 1 < transforms_; ++i)
    benchmark::DoNotOptimize(fft_->forward(frame_, spectrum_));
  benchmark::DoNotOptimize(transforms_ == 1 ? fft_->forward(frame_, spectrum_)
                                            : fft_->backward(spectrum_, frame_));
}

void HopFloor::read() {
  float sum = 0.0F;
  for (const auto& matrix : matrices_)
    sum += cblas_sasum(static_cast<MKL_INT>(matrix.size()), matrix.data(), 1);
  benchmark::DoNotOptimize(sum);
}

}  // namespace orvel_bench
