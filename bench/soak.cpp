// Hours of audio, as fast as they go, through many sessions that come and go: orvel_soak HOURS
// [SESSIONS]. Speech, silence, clipping and bursts of NaN and infinity alternate at random. Prints
// the figures as JSON; the exit status is 1 when memory grew, output was not finite or in range, or a
// frame was refused.
#include <malloc.h>

#include <algorithm>
#include <cmath>
#include <iostream>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <vector>

#include "bench/support.h"

namespace {

using namespace orvel_bench;
using nlohmann::json;

using orvel::kSampleRates;

constexpr std::size_t kMostSamples = 960;  // 10 ms at 96 kHz
constexpr int kParts = 10;
// Less than one small block for each of a hundred sessions. scripts/soak switches the allocator's caches
// off, which would count as held.
constexpr double kAllowedGrowthBytes = 1024.0;

enum class Mood { kSpeech, kSilence, kClipping, kNotFinite };

struct Slot {
  std::optional<BenchSession> session;
  std::size_t rate = 0;  // of the input, as an index
  Mood mood = Mood::kSpeech;
  int framesLeft = 0;
  std::size_t place = 0;
};

class Soak {
 public:
  explicit Soak(std::size_t slots) : slots_(slots) {
    for (const int rate : kSampleRates)
      audio_.push_back(benchSignal(rate, 3.0));
  }

  void run(double seconds) {
    for (double done = 0.0; done < seconds; done += 0.01 * static_cast<double>(slots_.size())) {
      for (Slot& slot : slots_)
        frame(slot);
    }
    audioSeconds_ += seconds;
  }

  long opened() const { return opened_; }
  long badFrames() const { return badFrames_; }
  double audioSeconds() const { return audioSeconds_; }

 private:
  unsigned random(unsigned below) { return static_cast<unsigned>(engine_()) % below; }

  void open(Slot& slot) {
    const auto& models = allModels();
    const BenchModel& model = models[random(static_cast<unsigned>(models.size()))];
    slot.rate = random(kSampleRates.size());
    slot.session.emplace(model, kSampleRates[slot.rate], kSampleRates[random(kSampleRates.size())]);
    ++opened_;
  }

  void frame(Slot& slot) {
    if (!slot.session || random(2000) == 0) open(slot);
    if (slot.framesLeft-- <= 0) {
      slot.mood = static_cast<Mood>(random(4));
      slot.framesLeft = static_cast<int>(random(slot.mood == Mood::kSpeech ? 2000 : 200));
    }
    fill(slot);
    try {
      slot.session->process(in_, out_);
    } catch (const orvel::Error&) {
      ++badFrames_;
    }
    check(slot);
  }

  void fill(Slot& slot) {
    const std::vector<float>& audio = audio_[slot.rate];
    const std::size_t size = slot.session->inputSize();
    slot.place = slot.place + size > audio.size() ? 0 : slot.place;
    for (std::size_t i = 0; i < size; ++i) {
      const float sample = audio[slot.place + i];
      switch (slot.mood) {
        case Mood::kSpeech:
          in_[i] = sample;
          break;
        case Mood::kSilence:
          in_[i] = 0.0F;
          break;
        case Mood::kClipping:
          in_[i] = sample * 1e4F;
          break;
        case Mood::kNotFinite:
          in_[i] = i % 3 == 0 ? NAN : (i % 3 == 1 ? INFINITY : -1e38F);
          break;
      }
    }
    slot.place += size;
  }

  void check(const Slot& slot) {
    const std::span<const float> out(out_.data(), slot.session->outputSize());
    const bool good = std::all_of(out.begin(), out.end(),
                                  [](float sample) { return sample >= -1.0F && sample < 1.0F; });
    badFrames_ += good ? 0 : 1;
  }

  std::mt19937 engine_{2024};
  std::vector<Slot> slots_;
  std::vector<std::vector<float>> audio_;
  std::vector<float> in_ = std::vector<float>(kMostSamples);
  std::vector<float> out_ = std::vector<float>(kMostSamples);
  long opened_ = 0;
  long badFrames_ = 0;
  double audioSeconds_ = 0.0;
};

// Bytes that the program holds on the heap; 0 where the allocator does not tell (sanitizers).
double heapBytes() {
  const struct mallinfo2 info = mallinfo2();
  return static_cast<double>(info.uordblks) + static_cast<double>(info.hblkhd);
}

// Every model at every rate, in and out: the filters of a pair of rates and what a model shares stay
// once they were used, so that what is left is the sessions' own.
void prepareEverything() {
  for (const BenchModel& model : allModels()) {
    for (const int rate : kSampleRates)
      BenchSession(model, rate, rate);
  }
}

struct Part {
  double hours, cpuSeconds, resident, heap;
};

json toJson(const std::vector<Part>& parts, double partSeconds) {
  json list = json::array();
  for (const Part& part : parts) {
    list.push_back({{"audio_hours", part.hours},
                    {"cpu_ms_per_audio_second", part.cpuSeconds * 1e3 / partSeconds},
                    {"resident_bytes", part.resident},
                    {"heap_bytes", part.heap}});
  }
  return list;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<double> arguments =
      argumentsOr({24.0, 50.0}, argc, argv, "orvel_soak [HOURS [SESSIONS]]");
  const double hours = arguments[0];
  const auto slots = static_cast<std::size_t>(arguments[1]);
  const double partSeconds = hours * 3600.0 / kParts;
  allModels();
  // Set aside beforehand: what this program keeps must not look like the library's.
  std::vector<Part> parts;
  parts.reserve(kParts);
  prepareEverything();
  const double emptyBefore = heapBytes();
  long opened = 0;
  long badFrames = 0;
  {
    Soak soak(slots);
    for (int part = 0; part < kParts; ++part) {
      const double time = nanosecondsOf([&] { soak.run(partSeconds); });
      parts.push_back({soak.audioSeconds() / 3600.0, time * 1e-9, residentBytes(), heapBytes()});
      std::cerr << "soak: " << part + 1 << " of " << kParts << std::endl;
    }
    badFrames = soak.badFrames();
    opened = soak.opened();
  }
  const double emptyAfter = heapBytes();
  const bool grew = emptyAfter > emptyBefore + kAllowedGrowthBytes;
  const json result = {{"audio_hours", hours},
                       {"sessions_at_once", slots},
                       {"sessions_opened", opened},
                       {"bad_frames", badFrames},
                       {"heap_bytes_without_sessions_before", emptyBefore},
                       {"heap_bytes_without_sessions_after", emptyAfter},
                       {"parts", toJson(parts, partSeconds)}};
  std::cout << result.dump(1) << '\n';
  std::cerr << "soak: " << opened << " sessions, " << emptyAfter - emptyBefore
            << " bytes more on the heap than before, " << badFrames << " bad frames\n";
  return badFrames > 0 || grew ? 1 : 0;
}
