// Batches of sessions give what the sessions give one by one, and what is wrong with one stays with it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/library.h"
#include "tests/support/sdk.h"
#include "tests/support/signals.h"
#include "tests/support/versions.h"

namespace orvel_test {
namespace {

enum class Wrong {
  kNothing,
  kUnknownHandle,
  kNullHandle,
  kClosed,
  kDetector,
  kRepeated,
  kNullInput,
  kNullOutput,
  kInputCount,
  kOutputCount,
};

struct Place {
  std::string model = "0.0.5";
  int inRate = 16000;
  int outRate = 16000;
  int ms = 10;
  Wrong wrong = Wrong::kNothing;
  bool inPlace = false;
};

struct Mix {
  std::string name;
  std::vector<Place> places;
};

std::vector<Mix> mixes() {
  std::vector<Mix> all{
      {"none", {}},
      {"one", {{}}},
      {"in place", {{.inPlace = true}, {}, {.inPlace = true}}},
      {"more than share a product", std::vector<Place>(135)},
      {"two models in turn", {}},
      {"every version", {}},
      {"rates and durations",
       {{.inRate = 8000},
        {.outRate = 48000},
        {.ms = 40},
        {.inRate = 44100, .ms = 20},
        {.ms = 30},
        {.inRate = 48000, .outRate = 8000},
        {.ms = 40},
        {.inRate = 96000, .outRate = 12000}}},
      {"faults in the middle", {{}}},
      {"nothing but faults", {{.wrong = Wrong::kUnknownHandle}, {.wrong = Wrong::kNullHandle}}},
  };
  for (int i = 0; i < 20; ++i)
    all[4].places.push_back({.model = i % 2 == 0 ? "0.0.5" : "other"});
  for (const CleanerTraits* version : noiseCleaners())
    all[5].places.insert(all[5].places.end(), 3, {.model = version->version});
  for (int wrong = 1; wrong <= static_cast<int>(Wrong::kOutputCount); ++wrong) {
    all[7].places.push_back({.wrong = static_cast<Wrong>(wrong)});
    all[7].places.push_back({});
  }
  return all;
}

int statusOf(Wrong wrong) {
  if (wrong == Wrong::kNothing) return 0;
  return wrong <= Wrong::kDetector ? 2 : 1;
}

// Faults of a call, not of its session: every other call is right.
bool comesAndGoes(Wrong wrong) { return wrong >= Wrong::kNullInput; }

int cleanBatch(uint32_t count, void* const* sessions, const float* const* in,
               const uint32_t* inCounts, float* const* out, const uint32_t* outCounts,
               int* statuses) {
  return Orv_NC_CleanBatchFloat(count, sessions, in, inCounts, out, outCounts, statuses);
}
int cleanBatch(uint32_t count, void* const* sessions, const int16_t* const* in,
               const uint32_t* inCounts, int16_t* const* out, const uint32_t* outCounts,
               int* statuses) {
  return Orv_NC_CleanBatchInt16(count, sessions, in, inCounts, out, outCounts, statuses);
}

class Models {
 public:
  Models() {
    for (const CleanerTraits* version : noiseCleaners())
      load(library, version->version, makeModel(shapeOf(*version)));
    load(library, "other", makeModel({.version = "0.0.5", .seed = 7}));
    load(library, "detector", makeVadModel());
  }
  orvel::Library library;
};

const std::vector<int16_t>& speechAt(int rate) {
  static std::map<int, std::vector<int16_t>> known;
  auto& speech = known[rate];
  if (speech.empty()) speech = speechLike(rate, 1.0);
  return speech;
}

// A session of the batch beside one of the same kind that is called by itself.
template <class Sample>
struct Stream {
  Stream(const orvel::Library& library, const Place& place, int seed)
      : batched(library, {place.inRate, place.outRate, place.ms, place.model}),
        alone(library, {place.inRate, place.outRate, place.ms, place.model}),
        expected(alone.outputSize()),
        got(alone.outputSize()) {
    const std::vector<int16_t>& speech = speechAt(place.inRate);
    if constexpr (std::is_same_v<Sample, float>) {
      audio = toFloat(speech);
    } else {
      audio = speech;
    }
    std::rotate(audio.begin(), audio.begin() + 101 * seed % (place.inRate / 2), audio.end());
  }
  std::span<const Sample> next() {
    const std::size_t size = alone.inputSize();
    if (at + size > audio.size()) at = 0;
    at += size;
    return std::span<const Sample>(audio).subspan(at - size, size);
  }

  orvel::Cleaner batched, alone;
  std::vector<Sample> audio, expected, got;
  std::size_t at = 0;
};

template <class Sample>
void expectAsOneByOne(const Models& models, const Mix& mix) {
  constexpr double kAgree = std::is_same_v<Sample, float> ? 1e-5 : 1.0;
  constexpr auto kUntouched = static_cast<Sample>(std::is_same_v<Sample, float> ? 0.123F : 1234.0F);
  orvel::Detector detector(models.library, {.rate = 8000, .model = "detector"});
  const auto count = static_cast<uint32_t>(mix.places.size());
  std::vector<std::unique_ptr<Stream<Sample>>> streams;
  std::vector<void*> sessions;
  int unknown = 0;
  for (uint32_t i = 0; i < count; ++i) {
    const Place& place = mix.places[i];
    streams.push_back(
        std::make_unique<Stream<Sample>>(models.library, place, static_cast<int>(i) + 1));
    Stream<Sample>& stream = *streams.back();
    // Hops fall due in different calls.
    for (uint32_t frame = 0; frame < i % 5; ++frame) {
      const auto input = stream.next();
      stream.batched.process(input, std::span(stream.got));
      stream.alone.process(input, std::span(stream.expected));
    }
    sessions.push_back(stream.batched.handle());
    if (place.wrong == Wrong::kUnknownHandle) sessions.back() = &unknown;
    if (place.wrong == Wrong::kNullHandle) sessions.back() = nullptr;
    if (place.wrong == Wrong::kDetector) sessions.back() = detector.handle();
    if (place.wrong == Wrong::kRepeated) sessions.back() = sessions[i - 1];
    if (place.wrong == Wrong::kClosed)
      sessions.back() =
          orvel::Cleaner(models.library, {.inputRate = 16000, .model = place.model}).handle();
  }

  std::vector<const Sample*> inputs(count);
  std::vector<Sample*> outputs(count);
  std::vector<uint32_t> inCounts(count), outCounts(count);
  std::vector<int> statuses(count), wanted(count);
  for (int call = 0; call < 40; ++call) {
    for (uint32_t i = 0; i < count; ++i) {
      Stream<Sample>& stream = *streams[i];
      const Wrong wrong = comesAndGoes(mix.places[i].wrong) && call % 2 == 0 ? Wrong::kNothing
                                                                             : mix.places[i].wrong;
      wanted[i] = statusOf(wrong);
      std::fill(stream.got.begin(), stream.got.end(), kUntouched);
      std::fill(stream.expected.begin(), stream.expected.end(), kUntouched);
      const auto input = stream.next();
      if (wanted[i] == 0) stream.alone.process(input, std::span(stream.expected));
      if (mix.places[i].inPlace) std::copy(input.begin(), input.end(), stream.got.begin());
      inputs[i] = wrong == Wrong::kNullInput ? nullptr
                  : mix.places[i].inPlace    ? stream.got.data()
                                             : input.data();
      outputs[i] = wrong == Wrong::kNullOutput ? nullptr : stream.got.data();
      inCounts[i] = static_cast<uint32_t>(input.size()) - (wrong == Wrong::kInputCount ? 1 : 0);
      outCounts[i] =
          static_cast<uint32_t>(stream.got.size()) + (wrong == Wrong::kOutputCount ? 1 : 0);
    }
    const int status = cleanBatch(count, sessions.data(), inputs.data(), inCounts.data(),
                                  outputs.data(), outCounts.data(), statuses.data());
    ASSERT_EQ(statuses, wanted) << "call " << call;
    const auto failed = std::find_if(wanted.begin(), wanted.end(), [](int s) { return s != 0; });
    ASSERT_EQ(status, failed == wanted.end() ? 0 : *failed);
    for (uint32_t i = 0; i < count; ++i)
      for (std::size_t k = 0; k < streams[i]->got.size(); ++k)
        ASSERT_NEAR(streams[i]->got[k], streams[i]->expected[k], kAgree)
            << "call " << call << ", place " << i << ", sample " << k;
  }
}

TEST(Batch, GivesWhatSessionsGiveOneByOne) {
  const Models models;
  const Sdk sdk;  // unknown handles belong to no context: their status is the global instance's
  Capture quiet;
  for (const Mix& mix : mixes()) {
    SCOPED_TRACE(mix.name);
    expectAsOneByOne<float>(models, mix);
    expectAsOneByOne<int16_t>(models, mix);
  }
}

TEST(Batch, NullArraysAreRefusedAndRepeatsNamed) {
  Sdk sdk;
  ASSERT_EQ(sdk.load("cleaner", makeModel({})), 0);
  void* session = Orv_NC_CreateSession(16000, 16000, 10, "cleaner");
  std::vector<float> first(160, 0.1F), second(160, 0.1F);
  void* sessions[] = {session, session};
  const float* inputs[] = {first.data(), second.data()};
  float* outputs[] = {first.data(), second.data()};
  const uint32_t counts[] = {160, 160};
  int statuses[] = {7, 7};
  EXPECT_EQ(cleanBatch(0, nullptr, static_cast<const float**>(nullptr), nullptr, nullptr, nullptr,
                       nullptr),
            0);
  for (int null = 0; null < 6; ++null) {
    const auto given = [&](int place, auto* array) { return place == null ? nullptr : array; };
    EXPECT_EQ(cleanBatch(2, given(0, sessions), given(1, inputs), given(2, counts),
                         given(3, outputs), given(4, counts), given(5, statuses)),
              1);
  }
  EXPECT_STREQ(Orv_Context_LastError(nullptr), "an array of the batch is null");
  EXPECT_EQ(statuses[0], 7);
  Capture capture;
  EXPECT_EQ(cleanBatch(2, sessions, inputs, counts, outputs, counts, statuses), 1);
  EXPECT_EQ(capture.err(), "The session is in the batch more than once\n");
  EXPECT_EQ(statuses[0], 0);
  EXPECT_EQ(statuses[1], 1);
  EXPECT_EQ(second.front(), 0.1F);
  const uint32_t wrong[] = {159, 160};
  EXPECT_EQ(cleanBatch(2, sessions, inputs, wrong, outputs, counts, statuses), 1);
  EXPECT_EQ(statuses[1], 1) << "a repeat, whatever is wrong with the first place";
  Orv_NC_CloseSession(session);
}

}  // namespace
}  // namespace orvel_test
