// Streams that one core serves in time. Every 10 ms a frame of each stream arrives, all at once; each must be
// cleaned before the next ones arrive. For batches of some sizes: the most streams of which none is late,
// how late they come over a longer run, and what happens when a quarter more arrive: streams are shed, each
// whole and for good, to pass through as they are. Lateness is counted in time that this thread had of its core,
// since what other programs and the machine's host take from a shared core says nothing about the library; the
// ticks that were late by the wall clock are counted beside. orvel_server [SECONDS]; prints JSON.
#include <time.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <orvel/orvel.hpp>
#include <string>
#include <vector>

#include "bench/support.h"
#include "tests/support/signals.h"

namespace {

using namespace orvel_bench;
using nlohmann::json;

constexpr double kTick = 10e6;  // ns
constexpr std::size_t kBatches[] = {1, 4, 16, 64};
constexpr double kProbeSeconds = 2.0;
constexpr double kOverload = 1.25;
// Share of the tick that the streams left after shedding may take.
constexpr double kFilled = 0.9;

double read(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

double now() { return read(CLOCK_MONOTONIC); }

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

class Server {
 public:
  struct Outcome {
    double worst = 0.0;  // ns of the core's time from a tick to its last stream's end
    std::size_t late = 0;
    std::size_t lateByTheWall = 0;
    std::size_t ticks = 0;
    std::size_t shed = 0;
    std::size_t lateAfterShedding = 0;
  };

  Server(const Mix& mix, std::size_t batchSize) : mix_(mix), batchSize_(batchSize) {
    batch_.reserve(batchSize);
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

  // With `sheds`, as many streams as it takes to be in time again pass from then on.
  Outcome run(double seconds, bool sheds) {
    Outcome outcome;
    const auto ticks = static_cast<std::size_t>(seconds * 1e9 / kTick);
    const double start = now() + kTick;
    double done = start;  // when the last tick would have ended on a core of one's own
    bool settled = !sheds;
    for (std::size_t tick = 0; tick < ticks; ++tick) {
      const double arrival = start + static_cast<double>(tick) * kTick;
      if (now() < arrival) sleepUntil(arrival);
      const double begin = read(CLOCK_THREAD_CPUTIME_ID);
      serve(tick);
      const double used = read(CLOCK_THREAD_CPUTIME_ID) - begin;
      done = std::max(done, arrival) + used;
      const bool late = done - arrival > kTick;
      ++outcome.ticks;
      outcome.worst = std::max(outcome.worst, done - arrival);
      outcome.late += late ? 1 : 0;
      outcome.lateByTheWall += now() - arrival > kTick ? 1 : 0;
      if (!sheds) continue;
      if (settled && late) ++outcome.lateAfterShedding;
      if (late && used > kTick * kFilled) {
        outcome.shed += shed(1.0 - kTick * kFilled / used);
      } else if (!late) {
        settled = true;
      }
    }
    return outcome;
  }

 private:
  void serve(std::size_t tick) {
    for (std::size_t first = 0; first < streams_.size(); first += batchSize_) {
      const std::size_t end = std::min(first + batchSize_, streams_.size());
      for (std::size_t i = first; i < end; ++i) {
        Stream& stream = *streams_[i];
        const auto frame = stream.receive(tick);
        if (passing_[i]) {
          std::copy(frame.begin(), frame.end(), stream.output().begin());
        } else {
          batch_.add(stream.cleaner(), frame, stream.output());
        }
      }
      if (!batch_.empty()) batch_.process();
      for (std::size_t i = first; i < end; ++i)
        streams_[i]->send(streams_[i]->output());
    }
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
  orvel::CleanerBatch<float> batch_;
};

// The most streams of which none is late in a probe, to one in fifty.
std::size_t search(Server& server) {
  const auto holds = [&](std::size_t count) {
    server.open(count);
    // Again when it fails: other work on the machine empties the caches.
    for (int attempt = 0; attempt < 3; ++attempt)
      if (server.run(kProbeSeconds, false).late == 0) return true;
    return false;
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

json measure(const Mix& mix, std::size_t batchSize, double seconds) {
  Server server(mix, batchSize);
  const std::size_t held = search(server);
  server.open(held);
  const Server::Outcome steady = server.run(seconds, false);
  const auto offered = static_cast<std::size_t>(std::ceil(static_cast<double>(held) * kOverload));
  server.open(offered);
  const Server::Outcome over = server.run(std::min(seconds, 60.0), true);
  return {{"mix", mix.name},
          {"batch", batchSize},
          {"held", held},
          {"seconds", seconds},
          {"worst_ms", steady.worst / 1e6},
          {"late_ticks", steady.late},
          {"late_by_the_wall", steady.lateByTheWall},
          {"ticks", steady.ticks},
          {"offered", offered},
          {"shed", over.shed},
          {"late_while_shedding", over.late - over.lateAfterShedding},
          {"late_after_shedding", over.lateAfterShedding}};
}

}  // namespace

int main(int argc, char** argv) {
  const double seconds = argumentsOr({600.0}, argc, argv, "orvel_server [SECONDS]")[0];
  allModels();  // loads them
  const Mix mixes[] = {
      {"16 kHz", {{"orvel-16k", 16000, false}}},
      {"48 kHz and G.711 at 8 kHz", {{"orvel-32k", 48000, false}, {"orvel-8k", 8000, true}}}};
  json results = json::array();
  for (const Mix& mix : mixes)
    for (const std::size_t batch : kBatches)
      results.push_back(measure(mix, batch, seconds));
  std::cout << results.dump(1) << '\n';
  return 0;
}
