// Many sessions at once: memory and creation time of each, and what a hop costs with thousands of
// others open beside its session. Every row comes from a process of its own, so that none finds memory
// that an earlier one gave back, or filters that it designed. Prints JSON.
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "bench/support.h"

namespace {

using namespace orvel_bench;
using nlohmann::json;

// The model that most sessions use: it alone is opened as often as asked, the others a tenth.
constexpr const char* kDefaultModel = "orvel-16k";
// A call of 10 ms holds no hop, one or two; 24 calls hold the same number wherever they begin.
constexpr std::size_t kPassCalls = 24;
constexpr int kPassesOfOne = 500;
constexpr int kPassesOfAll = 2;

double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

class Scale {
 public:
  Scale(const BenchModel& model, int rate)
      : model_(model),
        rate_(rate),
        size_(static_cast<std::size_t>(rate) / 100),
        audio_(benchSignal(rate, 1.0)),
        out_(size_) {}

  json measure(std::size_t count) {
    sessions_.reserve(count);
    creation_.reserve(count);
    open(1);
    const double first = creation_.front();
    const double alone = hopCost(kPassesOfOne);
    // What was given back so far must not hold sessions that count as new memory.
    malloc_trim(0);
    const double before = residentBytes();
    open(count);
    pass(count);
    const double memory = (residentBytes() - before) / static_cast<double>(count - 1);
    const double amongAll = hopCost(2 * kPassesOfOne);
    const double inTurn = hopCost(kPassesOfAll, count);
    sessions_.erase(sessions_.begin() + 1, sessions_.end());
    return {{"model", model_.info.name},
            {"rate", rate_},
            {"sessions", count},
            {"bytes_per_session", memory},
            {"first_creation_ns", first},
            {"creation_ns", median(creation_)},
            {"hop_ns_alone", std::min(alone, hopCost(kPassesOfOne))},
            {"hop_ns_among_all", amongAll},
            {"hop_ns_all_in_turn", inTurn}};
  }

 private:
  void open(std::size_t count) {
    while (sessions_.size() < count) {
      creation_.push_back(nanosecondsOf([&] { sessions_.emplace_back(model_, rate_, rate_); }));
    }
  }

  // Each of the first sessions gets the same calls, one call each in turn.
  void pass(std::size_t sessions) {
    place_ = place_ + kPassCalls * size_ > audio_.size() ? 0 : place_;
    for (std::size_t call = 0; call < kPassCalls; ++call) {
      for (std::size_t i = 0; i < sessions; ++i)
        sessions_[i].process(std::span(audio_).subspan(place_), out_);
      place_ += size_;
    }
  }

  // The least of several passes, per hop.
  double hopCost(int passes, std::size_t sessions = 1) {
    double least = 1e18;
    for (int i = 0; i < passes; ++i)
      least = std::min(least, nanosecondsOf([&] { pass(sessions); }));
    const double hops = model_.hopsPerSecond() * kPassCalls / 100.0;
    return least / (hops * static_cast<double>(sessions));
  }

  const BenchModel& model_;
  int rate_;
  std::size_t size_;
  std::vector<float> audio_, out_;
  std::size_t place_ = 0;
  std::vector<BenchSession> sessions_;
  std::vector<double> creation_;
};

// Measures in a child and reads its result from a pipe.
json measureApart(const BenchModel& model, int rate, std::size_t count) {
  int ends[2];
  if (pipe(ends) != 0) throw std::runtime_error("no pipe");
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("no process");
  if (child == 0) {
    int status = 1;
    try {
      const std::string text = Scale(model, rate).measure(std::max<std::size_t>(count, 2)).dump();
      status = write(ends[1], text.data(), text.size()) < 0 ? 1 : 0;
    } catch (const std::exception& error) {
      std::cerr << error.what() << '\n';
    }
    _exit(status);
  }
  close(ends[1]);
  std::string text;
  char piece[512];
  for (ssize_t got = 0; (got = read(ends[0], piece, sizeof piece)) > 0;)
    text.append(piece, static_cast<std::size_t>(got));
  close(ends[0]);
  waitpid(child, nullptr, 0);
  return json::parse(text);
}

}  // namespace

int main(int argc, char** argv) {
  const auto count =
      static_cast<std::size_t>(argumentsOr({10000}, argc, argv, "orvel_scale [SESSIONS]")[0]);
  // Left out: whoever takes memory first from a virtual machine pays for its host's providing it.
  measureApart(allModels().front(), 48000, count / 10);
  json results = json::array();
  for (const BenchModel& model : allModels()) {
    const bool most = model.info.name == kDefaultModel;
    results.push_back(measureApart(model, model.info.sampleRate, most ? count : count / 10));
    // Two resamplers make a session several times as large.
    if (model.info.sampleRate != 48000) results.push_back(measureApart(model, 48000, count / 10));
  }
  std::cout << results.dump(1) << '\n';
  return 0;
}
