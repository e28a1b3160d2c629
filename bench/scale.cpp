// Many sessions at once: memory and creation time of each, and what a frame costs with thousands of
// others open beside its session. Prints JSON.
#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <nlohmann/json.hpp>
#include <vector>

#include "bench/catalog.h"
#include "bench/clock.h"

namespace {

using namespace orvel_bench;
using nlohmann::json;

double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

// Work of a frame of 10 ms: the least of several rounds of a second each.
double frameCost(const BenchModel& model, const std::vector<void*>& sessions, int rate) {
  const std::vector<float> audio = benchSignal(rate, 1.0);
  const auto size = static_cast<std::size_t>(rate) / 100;
  std::vector<float> out(size);
  double least = 1e18;
  std::size_t next = 0;
  for (int round = 0; round < 15; ++round) {
    const double time = nanosecondsOf([&] {
      for (std::size_t at = 0; at + size <= audio.size(); at += size) {
        void* session = sessions[next++ % sessions.size()];
        processFrame(model, session, audio.data() + at, rate, out.data(), rate);
      }
    });
    least = std::min(least, time / 100.0);
  }
  return least;
}

json measure(const BenchModel& model, int rate, std::size_t count) {
  std::vector<void*> sessions;
  std::vector<double> creation;
  sessions.reserve(count);
  creation.reserve(count);
  const auto open = [&] {
    void* session = nullptr;
    creation.push_back(nanosecondsOf([&] { session = openSession(model, rate, rate); }));
    sessions.push_back(session);
  };
  open();
  const double first = creation.back();
  const double alone = frameCost(model, {sessions.front()}, rate);
  const double before = residentBytes();
  while (sessions.size() < count)
    open();
  std::vector<float> out(static_cast<std::size_t>(rate) / 100);
  const std::vector<float> audio = benchSignal(rate, 0.01);
  for (void* session : sessions)
    processFrame(model, session, audio.data(), rate, out.data(), rate);
  const double memory = (residentBytes() - before) / static_cast<double>(count - 1);
  const double amongMany = frameCost(model, {sessions.front()}, rate);
  const double inTurn = frameCost(model, sessions, rate);
  for (void* session : sessions)
    closeSession(model, session);
  const double aloneAgain = [&] {
    void* session = openSession(model, rate, rate);
    const double cost = frameCost(model, {session}, rate);
    closeSession(model, session);
    return cost;
  }();
  return {{"model", model.name},
          {"shipped", model.shipped},
          {"rate", rate},
          {"sessions", count},
          {"bytes_per_session", memory},
          {"first_creation_ns", first},
          {"creation_ns", median(creation)},
          {"frame_ns_alone", std::min(alone, aloneAgain)},
          {"frame_ns_among_all", amongMany},
          {"frame_ns_all_in_turn", inTurn}};
}

}  // namespace

int main(int argc, char** argv) {
  const auto count = static_cast<std::size_t>(argc > 1 ? std::atoi(argv[1]) : 10000);
  json results = json::array();
  for (const BenchModel& model : allModels()) {
    results.push_back(measure(model, model.rate, std::max<std::size_t>(count, 2)));
    // Two resamplers make a session several times as large.
    results.push_back(measure(model, 48000, std::max<std::size_t>(count / 10, 2)));
  }
  std::cout << results.dump(1) << '\n';
  return 0;
}
