// Time of every single frame of a long stream, per model: median, 99th and 99.9th percentile and the
// worst. The unit is the hop, the analysis step for which the network is evaluated: a call that holds
// two counts as two. The stream runs several times; a frame's least time is its work, what is above
// it came from the machine. Prints JSON.
#include <algorithm>
#include <cmath>
#include <iostream>
#include <nlohmann/json.hpp>
#include <vector>

#include "bench/support.h"

namespace {

using namespace orvel_bench;
using nlohmann::json;

constexpr int kRuns = 5;

// Speech; a fade into digital silence, where denormal numbers would show; clipping; NaN.
std::vector<float> stream(int rate, double seconds) {
  std::vector<float> audio = benchSignal(rate, seconds);
  const std::size_t quarter = audio.size() / 4;
  for (std::size_t i = 0; i < quarter; ++i) {
    audio[quarter + i] *= std::exp(-20.0F * static_cast<float>(i) / static_cast<float>(quarter));
    if (i > quarter / 2) audio[quarter + i] = 0.0F;
    audio[2 * quarter + i] *= 40.0F;
    if (i % 5 == 0 && i > quarter / 2) audio[2 * quarter + i] = NAN;
  }
  return audio;
}

std::vector<double> frameTimes(const BenchModel& model, int rate, const std::vector<float>& audio) {
  BenchSession session(model, rate, rate);
  const std::size_t size = session.inputSize();
  std::vector<float> out(session.outputSize());
  std::vector<double> times;
  for (std::size_t at = 0; at + size <= audio.size(); at += size) {
    const std::span<const float> frame(audio.data() + at, size);
    times.push_back(nanosecondsOf([&] { session.process(frame, out); }));
  }
  return times;
}

// Hops that fall into call number `call`.
int hopsOf(const BenchModel& model, std::size_t call) {
  const std::size_t hop = model.info.hop;
  const auto size = static_cast<std::size_t>(model.info.sampleRate) / 100;
  return static_cast<int>((call + 1) * size / hop - call * size / hop);
}

json percentiles(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const auto at = [&](double share) {
    const double place = share * static_cast<double>(values.size() - 1);
    return values[static_cast<std::size_t>(place)];
  };
  return {{"p50", at(0.5)}, {"p99", at(0.99)}, {"p99.9", at(0.999)}, {"max", values.back()}};
}

json measure(const BenchModel& model, int rate, double seconds) {
  const std::vector<float> audio = stream(rate, seconds);
  std::vector<double> least;
  std::vector<double> all;
  for (int run = 0; run < kRuns; ++run) {
    const std::vector<double> times = frameTimes(model, rate, audio);
    if (least.empty()) least = times;
    for (std::size_t i = 0; i < times.size(); ++i) {
      least[i] = std::min(least[i], times[i]);
      if (const int hops = hopsOf(model, i); hops > 0) all.push_back(times[i] / hops);
    }
  }
  std::vector<double> work;
  for (std::size_t i = 0; i < least.size(); ++i) {
    if (const int hops = hopsOf(model, i); hops > 0) work.push_back(least[i] / hops);
  }
  return {{"model", model.info.name},
          {"rate", rate},
          {"frames", least.size()},
          {"runs", kRuns},
          {"work_ns_per_hop", percentiles(work)},
          {"seen_ns_per_hop", percentiles(all)}};
}

}  // namespace

int main(int argc, char** argv) {
  const double seconds = argumentsOr({60.0}, argc, argv, "orvel_frame_times [SECONDS]")[0];
  json results = json::array();
  for (const BenchModel& model : allModels()) {
    results.push_back(measure(model, model.info.sampleRate, seconds));
    if (model.info.sampleRate != 48000) results.push_back(measure(model, 48000, seconds));
  }
  std::cout << results.dump(1) << '\n';
  return 0;
}
