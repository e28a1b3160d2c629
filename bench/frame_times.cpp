// Time of every single frame of a long stream, per model: median, 99th and 99.9th percentile and the
// worst. The unit is the hop, the analysis step for which the network is evaluated: a call that holds
// two counts as two. The stream runs several times; a frame's least time is its work, what is above
// it came from the machine. Prints JSON.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iostream>
#include <nlohmann/json.hpp>
#include <vector>

#include "bench/catalog.h"
#include "bench/clock.h"

namespace {

using namespace orvel_bench;
using nlohmann::json;

constexpr int kRuns = 5;

// Speech; a fade into digital silence, where denormal numbers would show; clipping; numbers that are
// none.
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
  void* session = openSession(model, rate, rate);
  const auto size = static_cast<std::size_t>(rate) / 100;
  std::vector<float> out(size);
  std::vector<double> times;
  for (std::size_t at = 0; at + size <= audio.size(); at += size) {
    times.push_back(nanosecondsOf(
        [&] { processFrame(model, session, audio.data() + at, rate, out.data(), rate); }));
  }
  closeSession(model, session);
  return times;
}

// Hops that fall into call number `call`.
int hopsOf(const BenchModel& model, std::size_t call) {
  if (model.voice) return 1;
  const auto step = static_cast<std::size_t>(model.weight->values().getReference<int>("Step"));
  const auto size = static_cast<std::size_t>(model.rate) / 100;
  return static_cast<int>((call + 1) * size / step - call * size / step);
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
  return {{"model", model.name},
          {"shipped", model.shipped},
          {"rate", rate},
          {"frames", least.size()},
          {"runs", kRuns},
          {"work_ns_per_hop", percentiles(work)},
          {"seen_ns_per_hop", percentiles(all)}};
}

}  // namespace

int main(int argc, char** argv) {
  const double seconds = argc > 1 ? std::atof(argv[1]) : 60.0;
  json results = json::array();
  for (const BenchModel& model : allModels()) {
    results.push_back(measure(model, model.rate, seconds));
    if (model.rate != 48000) results.push_back(measure(model, 48000, seconds));
  }
  std::cout << results.dump(1) << '\n';
  return 0;
}
