// Streams that one core serves in time. Every 10 ms a frame of each stream arrives, all at once; each must be
// cleaned before the next ones arrive. For batches of some sizes: the most streams whose usual work leaves a
// reserve, how late they come over a longer run, and what happens when a quarter more than fill the core arrive:
// streams are shed, each whole and for good, to pass through as they are. Before all, a loop of arithmetic of
// fixed length takes the place of the streams: what is late there is the machine's doing, its host's included,
// and the floor for the rest. orvel_server [SECONDS [MIX]], MIX from 1; prints JSON.
#include <time.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <orvel/orvel.hpp>
#include <string>
#include <utility>
#include <vector>

#include "bench/support.h"
#include "tests/support/signals.h"

namespace {

using namespace orvel_bench;
using nlohmann::json;

constexpr double kTick = 10e6;  // ns
constexpr std::size_t kBatches[] = {1, 16, 64};
// A hop is 1.6 frames in all models, so that the work repeats after eight ticks.
constexpr std::size_t kKinds = 8;
constexpr double kProbeSeconds = 2.0;
// Share of the tick above which streams are shed, down to kFilled.
constexpr double kCrowded = 0.8;
constexpr double kOverload = 1.25;
constexpr double kOverloadSeconds = 60.0;
// Share of the tick that held streams may take. The rest is reserve: a core may be slower for a while by half.
constexpr double kFilled = 0.6;

double now() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

void sleepUntil(double moment) {
  const auto seconds = static_cast<time_t>(moment / 1e9);
  const timespec time{seconds, static_cast<long>(moment - static_cast<double>(seconds) * 1e9)};
  clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr);
}

// G.711, mu-law.
std::int16_t expand(std::uint8_t code) {
  const int bits = ~code & 0xff;
  const int magnitude = (((bits & 0x0f) << 3) + 0x84) << ((bits >> 4) & 7);
  return static_cast<std::int16_t>((bits & 0x80) != 0 ? 0x84 - magnitude : magnitude - 0x84);
}
std::uint8_t compress(std::int16_t sample) {
  const int magnitude = std::min(std::abs(static_cast<int>(sample)), 32635) + 0x84;
  int exponent = 7;
  while (exponent > 0 && (magnitude & (0x80 << exponent)) == 0)
    --exponent;
  const int mantissa = (magnitude >> (exponent + 3)) & 0x0f;
  return static_cast<std::uint8_t>(~((sample < 0 ? 0x80 : 0) | (exponent << 4) | mantissa));
}

struct Kind {
  const char* model;
  int rate;
  bool telephone;
};

const std::vector<std::int16_t>& speech(int rate) {
  static std::map<int, std::vector<std::int16_t>> known;
  auto& audio = known[rate];
  if (audio.empty()) audio = orvel_test::speechLike(rate, 3.0);
  return audio;
}

// A stream's way through the server: where its next frame comes from and goes to.
class Stream {
 public:
  Stream(const Kind& kind, std::size_t number)
      : telephone_(kind.telephone),
        cleaner_(benchLibrary(), {.inputRate = kind.rate, .model = kind.model}),
        size_(cleaner_.inputSize()),
        number_(number),
        audio_(speech(kind.rate)),
        in_(size_),
        out_(size_),
        codes_(kind.telephone ? size_ : 0) {}

  // What arrives: a packet of the stream, decoded.
  std::span<const float> receive(std::size_t tick) {
    const std::size_t frames = audio_.size() / size_;
    const std::int16_t* from = audio_.data() + ((tick + 7 * number_) % frames) * size_;
    for (std::size_t i = 0; i < size_; ++i) {
      const std::int16_t sample = telephone_ ? expand(compress(from[i])) : from[i];
      in_[i] = static_cast<float>(sample) / 32768.0F;
    }
    return in_;
  }
  // What leaves.
  void send(std::span<const float> frame) {
    for (std::size_t i = 0; i < codes_.size(); ++i)
      codes_[i] = compress(static_cast<std::int16_t>(frame[i] * 32768.0F));
  }

  orvel::Cleaner& cleaner() { return cleaner_; }
  std::span<float> output() { return out_; }

 private:
  bool telephone_;
  orvel::Cleaner cleaner_;
  std::size_t size_;
  std::size_t number_;
  const std::vector<std::int16_t>& audio_;
  std::vector<float> in_, out_;
  std::vector<std::uint8_t> codes_;
};

struct Mix {
  const char* name;
  std::vector<Kind> kinds;  // in equal parts
};

// Usual work of the ticks by kind: the medians, of which the largest says whether a tick can be late at all.
class UsualWork {
 public:
  void add(std::size_t tick, double work) { works_[tick % kKinds].push_back(work); }
  double largest() {
    double largest = 0.0;
    for (auto& works : works_) {
      const auto middle = works.begin() + static_cast<std::ptrdiff_t>(works.size() / 2);
      std::nth_element(works.begin(), middle, works.end());
      largest = std::max(largest, *middle);
    }
    return largest;
  }

 private:
  std::array<std::vector<double>, kKinds> works_;
};

// What a run saw, in nanoseconds of the wall clock from a tick to its last stream's end.
struct Outcome {
  std::vector<double> times;
  double usual = 0.0;
  std::size_t shed = 0;
  std::size_t lateWhileShedding = 0;
  std::size_t lateAfterShedding = 0;

  std::size_t late() const { return std::count_if(times.begin(), times.end(), isLate); }
  // Sorts the times.
  double quantile(double share) {
    std::sort(times.begin(), times.end());
    return times[static_cast<std::size_t>(share * static_cast<double>(times.size() - 1))];
  }
  static bool isLate(double time) { return time > kTick; }
};

// Calls `serve(tick)` every 10 ms, and `react(work, late)` after it, which says how many streams it took out.
template <class Serve, class React>
Outcome run(double seconds, Serve&& serve, React&& react) {
  Outcome outcome;
  const auto ticks = static_cast<std::size_t>(seconds * 1e9 / kTick);
  outcome.times.reserve(ticks);
  UsualWork usual;
  bool settled = false;
  const double start = now() + kTick;
  for (std::size_t tick = 0; tick < ticks; ++tick) {
    const double arrival = start + static_cast<double>(tick) * kTick;
    if (now() < arrival) sleepUntil(arrival);
    const double begin = now();
    serve(tick);
    const double end = now(), time = end - arrival, work = end - begin;
    outcome.times.push_back(time);
    usual.add(tick, work);
    const bool late = Outcome::isLate(time);
    if (late) ++(settled ? outcome.lateAfterShedding : outcome.lateWhileShedding);
    outcome.shed += react(work, late);
    settled = settled || !late;
  }
  outcome.usual = usual.largest();
  return outcome;
}

Outcome run(double seconds, auto&& serve) {
  return run(seconds, serve, [](double, bool) { return std::size_t{0}; });
}

class Server {
 public:
  Server(const Mix& mix, std::size_t batchSize) : mix_(mix), batchSize_(batchSize) {
    batch_.reserve(batchSize);
    members_.reserve(batchSize);
  }

  // Opens streams up to that number: those of a kind beside each other, in the middle of their hops.
  void open(std::size_t count) {
    streams_.clear();
    for (std::size_t kind = 0; kind < mix_.kinds.size(); ++kind) {
      const std::size_t share = (count + mix_.kinds.size() - 1 - kind) / mix_.kinds.size();
      for (std::size_t i = 0; i < share; ++i) {
        streams_.push_back(std::make_unique<Stream>(mix_.kinds[kind], streams_.size()));
        Stream& stream = *streams_.back();
        for (std::size_t tick = 0; tick < i % 24; ++tick)
          stream.cleaner().process(stream.receive(tick), stream.output());
      }
    }
    passing_.assign(streams_.size(), false);
  }

  Outcome steady(double seconds) {
    return run(seconds, [this](std::size_t tick) { serve(tick); });
  }

  // As many streams as it takes to be in time again pass from then on. The second largest work of the last ticks
  // says how many: one tick alone may have been interrupted.
  Outcome shedding(double seconds) {
    std::vector<double> recent;
    recent.reserve(kKinds);
    const auto react = [&](double work, bool late) -> std::size_t {
      if (recent.size() == kKinds) recent.erase(recent.begin());
      recent.push_back(work);
      if (!late || recent.size() < kKinds) return 0;
      auto sorted = recent;
      std::nth_element(sorted.begin(), sorted.end() - 2, sorted.end());
      const double usual = *(sorted.end() - 2);
      if (usual <= kTick * kCrowded) return 0;
      recent.clear();
      return shed(1.0 - kTick * kFilled / usual);
    };
    return run(
        seconds, [this](std::size_t tick) { serve(tick); }, react);
  }

 private:
  // Batches are made of the streams that are still cleaned, so that they stay full.
  void serve(std::size_t tick) {
    for (std::size_t i = 0; i < streams_.size(); ++i) {
      Stream& stream = *streams_[i];
      const auto frame = stream.receive(tick);
      if (passing_[i]) {
        std::copy(frame.begin(), frame.end(), stream.output().begin());
        stream.send(stream.output());
        continue;
      }
      batch_.add(stream.cleaner(), frame, stream.output());
      members_.push_back(&stream);
      if (members_.size() == batchSize_) process();
    }
    process();
  }

  void process() {
    if (!members_.empty()) batch_.process();
    for (Stream* stream : members_)
      stream->send(stream->output());
    members_.clear();
  }

  // Every kind loses its share: spread evenly over the streams that are still cleaned.
  std::size_t shed(double share) {
    std::size_t count = 0;
    double due = 0.0;
    for (std::size_t i = 0; i < passing_.size(); ++i) {
      if (passing_[i]) continue;
      due += share;
      if (due < 1.0) continue;
      due -= 1.0;
      passing_[i] = true;
      ++count;
    }
    return count;
  }

  const Mix& mix_;
  std::size_t batchSize_;
  std::vector<std::unique_ptr<Stream>> streams_;
  std::vector<bool> passing_;
  std::vector<Stream*> members_;  // of the batch
  orvel::CleanerBatch<float> batch_;
};

// The most streams whose usual work takes that share of a tick, to one in fifty.
std::size_t most(Server& server, double share) {
  const auto holds = [&](std::size_t count) {
    server.open(count);
    return server.steady(kProbeSeconds).usual <= share * kTick;
  };
  std::size_t good = 0, bad = 8;
  while (holds(bad)) {
    good = bad;
    bad *= 2;
  }
  while (bad - good > std::max<std::size_t>(1, good / 50)) {
    const std::size_t middle = (good + bad) / 2;
    (holds(middle) ? good : bad) = middle;
  }
  return good;
}

json described(Outcome& outcome) {
  return {{"usual_ms", outcome.usual / 1e6},
          {"p999_ms", outcome.quantile(0.999) / 1e6},
          {"worst_ms", outcome.quantile(1.0) / 1e6},
          {"late_ticks", outcome.late()},
          {"ticks", outcome.times.size()}};
}

// A loop that takes as long as held streams may, on a core of its own.
json measureFloor(double seconds) {
  const auto loop = [](std::size_t steps) {
    [[maybe_unused]] static volatile float sink;
    float value = 0.5F;
    for (std::size_t i = 0; i < steps; ++i)
      value = std::sqrt(value + 1.7F);
    sink = value;
  };
  const double begin = now();
  constexpr std::size_t kSteps = 100'000'000;
  loop(kSteps);
  const auto steps = static_cast<std::size_t>(kSteps * kFilled * kTick / (now() - begin));
  Outcome outcome = run(seconds, [&](std::size_t) { loop(steps); });
  json result = described(outcome);
  result["mix"] = "a loop of arithmetic";
  return result;
}

// The streams of a mix in batches of one size: their row of the steady table and of the one on overload.
std::pair<json, json> measure(const Mix& mix, std::size_t batchSize, double seconds) {
  Server server(mix, batchSize);
  const std::size_t held = most(server, kFilled);
  std::cerr << mix.name << ", batches of " << batchSize << ": " << held << " streams for "
            << seconds << " s\n";
  const json names = {{"mix", mix.name}, {"batch", batchSize}, {"held", held}};
  server.open(held);
  Outcome steady = server.steady(seconds);
  json usual = described(steady);
  usual.update(names);
  // More than a core can do, whatever the reserve.
  const auto offered =
      static_cast<std::size_t>(std::ceil(static_cast<double>(held) / kFilled * kOverload));
  server.open(offered);
  const Outcome over = server.shedding(std::min(seconds, kOverloadSeconds));
  json overload = {{"offered", offered},
                   {"shed", over.shed},
                   {"late_while_shedding", over.lateWhileShedding},
                   {"late_after_shedding", over.lateAfterShedding}};
  overload.update(names);
  return {usual, overload};
}

}  // namespace

int main(int argc, char** argv) {
  // Without the second, all mixes.
  const auto arguments = argumentsOr({600.0, 0.0}, argc, argv, "orvel_server [SECONDS [MIX]]");
  const double seconds = arguments[0];
  allModels();  // loads them
  const std::vector<Mix> mixes = {
      {"16 kHz", {{"orvel-16k", 16000, false}}},
      {"48 kHz and G.711 at 8 kHz", {{"orvel-32k", 48000, false}, {"orvel-8k", 8000, true}}}};
  json rows = json::array({measureFloor(seconds)}), overload = json::array();
  for (std::size_t number = 1; number <= mixes.size(); ++number) {
    if (arguments[1] != 0.0 && arguments[1] != static_cast<double>(number)) continue;
    for (const std::size_t batch : kBatches) {
      auto [usual, over] = measure(mixes[number - 1], batch, seconds);
      rows.push_back(std::move(usual));
      overload.push_back(std::move(over));
    }
  }
  const json results = {{"seconds", seconds}, {"rows", rows}, {"overload", overload}};
  std::cout << results.dump(1) << '\n';
  return 0;
}
