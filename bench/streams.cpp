// Streams that one core carries over the number of sessions in a batch, for the model that most sessions
// use at its own rate, beside what the network's operations cost at the processor's peak. Prints JSON.
#include <algorithm>
#include <cstdint>
#include <iostream>
#include <nlohmann/json.hpp>
#include <orvel/orvel.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/support.h"

namespace {

using namespace orvel_bench;
using nlohmann::json;

constexpr const char* kModel = "orvel-16k";
constexpr std::size_t kSessions = 64;
// 0: each session by its own function.
constexpr std::size_t kBatches[] = {0, 1, 2, 4, 8, 16, 32, 64};
// A call of 10 ms holds no hop, one or two; 24 calls hold the same number wherever they begin.
constexpr std::size_t kCalls = 24;

double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

// The processor's peak, as far as a program reaches it: multiply-adds on registers alone.

constexpr std::size_t kSteps = 200000;
// As many chains as hide the latency of one and still fit into the registers.
constexpr std::size_t kChains = 12;

template <class Vector>
[[gnu::always_inline]] inline float multiplyAdds() {
  Vector sums[kChains] = {};
  Vector factor = Vector{} + 0.5F;
  asm volatile("" : "+m"(factor));
  for (std::size_t i = 0; i < kSteps; ++i) {
#pragma GCC unroll 16
    for (std::size_t c = 0; c < kChains; ++c)
      sums[c] = sums[c] * factor + factor;
  }
  Vector all = sums[0];
  for (std::size_t c = 1; c < kChains; ++c)
    all += sums[c];
  return all[0];
}

struct Chains {
  float (*run)();
  std::size_t width;  // floats in a vector
};

#if defined(__x86_64__)
using Wide [[gnu::vector_size(64)]] = float;
using Medium [[gnu::vector_size(32)]] = float;
using Narrow [[gnu::vector_size(16)]] = float;
[[gnu::target("avx512f")]] float wide() { return multiplyAdds<Wide>(); }
[[gnu::target("avx2,fma")]] float medium() { return multiplyAdds<Medium>(); }
float narrow() { return multiplyAdds<Narrow>(); }

Chains widest() {
  if (__builtin_cpu_supports("avx512f")) return {wide, 16};
  if (__builtin_cpu_supports("fma")) return {medium, 8};
  return {narrow, 4};
}
#else
using Narrow [[gnu::vector_size(16)]] = float;
float narrow() { return multiplyAdds<Narrow>(); }
Chains widest() { return {narrow, 4}; }
#endif

// Operations in single precision (two for a multiply-add) for each nanosecond of the thread, the most of
// some tries.
double peakFlopsPerNanosecond() {
  const Chains chains = widest();
  double least = 1e30;
  for (int i = 0; i < 5; ++i) {
    volatile float kept = 0.0F;
    least = std::min(least, nanosecondsOf([&] { kept = chains.run(); }));
  }
  return 2.0 * static_cast<double>(kSteps * kChains * chains.width) / least;
}

class Streams {
 public:
  // `apart`: the hops of neighbours fall due in different calls, as those of callers who dialled in by
  // themselves; otherwise in the same ones.
  Streams(const BenchModel& model, bool apart)
      : size_(static_cast<std::uint32_t>(model.info.sampleRate) / 100),
        audio_(benchSignal(model.info.sampleRate, 2.0)),
        counts_(kSessions, size_),
        statuses_(kSessions) {
    const int rate = model.info.sampleRate;
    std::vector<float> out(size_);
    for (std::size_t i = 0; i < kSessions; ++i) {
      cleaners_.emplace_back(benchLibrary(),
                             orvel::CleanerOptions{.inputRate = rate, .model = model.info.name});
      sessions_.push_back(cleaners_.back().handle());
      frames_.emplace_back(size_);
      outputs_.push_back(frames_.back().data());
      inputs_.push_back(nullptr);
      for (std::size_t call = 0; apart && call < i % 24; ++call)
        cleaners_.back().process(std::span<const float>(audio_).subspan(i, size_), std::span(out));
    }
  }

  // Processor time of a second of one stream.
  double nanosecondsPerSecond(std::size_t batch) {
    const double time = nanosecondsOf([&] {
      for (std::size_t call = 0; call < kCalls; ++call) {
        for (std::size_t i = 0; i < kSessions; ++i)
          inputs_[i] = audio_.data() + (call * size_ + 37 * i) % (audio_.size() - size_);
        for (std::size_t i = 0; i < kSessions; i += std::max<std::size_t>(batch, 1))
          clean(i, batch);
      }
    });
    return time / static_cast<double>(kCalls * kSessions) * 100.0;
  }

 private:
  void clean(std::size_t i, std::size_t batch) {
    if (batch == 0) {
      cleaners_[i].process(std::span(inputs_[i], size_), std::span(frames_[i]));
    } else if (Orv_NC_CleanBatchFloat(static_cast<std::uint32_t>(batch), &sessions_[i], &inputs_[i],
                                      &counts_[i], &outputs_[i], &counts_[i], &statuses_[i]) != 0) {
      throw std::runtime_error("a batch failed");
    }
  }

  std::uint32_t size_;
  std::vector<float> audio_;
  std::vector<orvel::Cleaner> cleaners_;
  std::vector<void*> sessions_;
  std::vector<std::vector<float>> frames_;
  std::vector<const float*> inputs_;
  std::vector<float*> outputs_;
  std::vector<std::uint32_t> counts_;
  std::vector<int> statuses_;
};

// Sizes in turn, round after round: what else the machine does falls on all of them.
json measure(const BenchModel& model, std::size_t rounds) {
  Streams together(model, false), apart(model, true);
  std::vector<std::vector<double>> times(2 * std::size(kBatches));
  std::vector<double> peaks;
  for (std::size_t round = 0; round <= rounds; ++round) {
    peaks.push_back(peakFlopsPerNanosecond());
    for (std::size_t b = 0; b < std::size(kBatches); ++b) {
      const double first = together.nanosecondsPerSecond(kBatches[b]);
      const double second = apart.nanosecondsPerSecond(kBatches[b]);
      if (round == 0) continue;  // warms up
      times[2 * b].push_back(first);
      times[2 * b + 1].push_back(second);
    }
  }
  json rows = json::array();
  for (std::size_t b = 0; b < std::size(kBatches); ++b)
    rows.push_back({{"batch", kBatches[b]},
                    {"together_ns", median(times[2 * b])},
                    {"apart_ns", median(times[2 * b + 1])}});
  const double peak = median(peaks);
  return {
      {"model", model.info.name},
      {"weights", model.info.weights},
      {"rate", model.info.sampleRate},
      {"peak_gflops", peak},
      {"bound_ns", 2.0 * static_cast<double>(model.info.weights) * model.hopsPerSecond() / peak},
      {"rows", rows}};
}

}  // namespace

int main(int argc, char** argv) {
  const auto rounds =
      static_cast<std::size_t>(argumentsOr({11}, argc, argv, "orvel_streams [ROUNDS]")[0]);
  json results = json::array();
  for (const BenchModel& model : allModels())
    if (model.info.name == kModel) results.push_back(measure(model, rounds));
  std::cout << results.dump(1) << '\n';
  return 0;
}
