// The C++ interface: streams of any block length against whole frames, stated latencies, flushing, errors,
// moves and lifetimes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <functional>
#include <optional>

#include "tests/support/library.h"
#include "tests/support/signals.h"

namespace orvel_test {
namespace {

using testing::HasSubstr;

static_assert(!std::is_copy_constructible_v<orvel::Library>);
static_assert(!std::is_copy_constructible_v<orvel::StreamCleaner>);
static_assert(std::is_nothrow_move_constructible_v<orvel::Library>);
static_assert(std::is_nothrow_move_assignable_v<orvel::Cleaner>);
static_assert(std::is_nothrow_move_assignable_v<orvel::Detector>);
static_assert(std::is_nothrow_move_assignable_v<orvel::StreamCleaner>);
static_assert(std::is_nothrow_move_assignable_v<orvel::VoiceDetector>);

using Channels = std::vector<std::vector<float>>;

// Every channel has a signal of its own, no whole number of frames long.
Channels makeChannels(int rate, std::size_t count, double seconds = 0.2) {
  Channels channels;
  for (unsigned c = 0; c < count; ++c) {
    channels.push_back(toFloat(speechLike(rate, seconds, c + 1)));
    channels.back().resize(channels.back().size() - 13);
  }
  return channels;
}

std::vector<float> interleave(const Channels& channels) {
  std::vector<float> all;
  for (std::size_t i = 0; i < channels.front().size(); ++i) {
    for (const auto& channel : channels)
      all.push_back(channel[i]);
  }
  return all;
}

// Block lengths in turn, the same again until the stream is through.
struct Blocks {
  const char* name;
  std::vector<std::size_t> lengths;
};
const Blocks kBlocks[] = {{"single samples", {1}},
                          {"10 ms at 16 kHz and one more or less", {159, 161, 160}},
                          {"odd", {7, 0, 1000, 1, 333}},
                          {"all at once", {1U << 20U}}};

template <class Call>
void forEachBlock(const Blocks& blocks, std::size_t frames, const Call& call) {
  std::size_t turn = 0;
  for (std::size_t at = 0; at < frames;) {
    const std::size_t length =
        std::min(blocks.lengths[turn++ % blocks.lengths.size()], frames - at);
    call(at, length);
    at += length;
  }
}

// What whole frames give, behind the zeros that gathering a frame takes.
template <class Sample>
std::vector<Sample> frameByFrame(const orvel::Library& library, int rate,
                                 const std::vector<Sample>& input) {
  orvel::Cleaner cleaner(library, {rate, 0, 10, "model"});
  const std::vector<Sample> frames = cleanStream(cleaner, input);
  std::vector<Sample> output(cleaner.inputSize() - 1);
  output.insert(output.end(), frames.begin(), frames.end());
  output.resize(input.size());
  return output;
}

// Frames of several channels are cleaned in a batch, which rounds differently.
void expectClose(const std::vector<float>& got, const std::vector<float>& expected) {
  ASSERT_EQ(got.size(), expected.size());
  for (std::size_t i = 0; i < got.size(); ++i)
    ASSERT_NEAR(got[i], expected[i], 1e-5) << "sample " << i;
}

TEST(StreamCleaner, AnyBlocksGiveWhatFramesGive) {
  orvel::Library library;
  load(library, "model", makeModel({.version = "0.0.3"}));
  const std::pair<int, int> kinds[] = {{16000, 1}, {16000, 3}, {44100, 2}, {96000, 1}, {8000, 2}};
  for (const auto& [rate, channels] : kinds) {
    const auto count = static_cast<std::size_t>(channels);
    const Channels input = makeChannels(rate, count);
    const std::size_t frames = input.front().size();
    Channels expected;
    for (const auto& channel : input)
      expected.push_back(frameByFrame(library, rate, channel));
    const std::vector<float> interleaved = interleave(input);
    for (const Blocks& blocks : kBlocks) {
      SCOPED_TRACE(testing::Message() << rate << " Hz, " << count << " channels, " << blocks.name);
      orvel::StreamCleaner cleaner(library, {.rate = rate, .channels = channels, .model = "model"});
      std::vector<float> apart(interleaved.size(), 7.0F);
      forEachBlock(blocks, frames, [&](std::size_t at, std::size_t length) {
        cleaner.process(std::span(interleaved).subspan(at * count, length * count),
                        std::span(apart).subspan(at * count, length * count));
      });
      expectClose(apart, interleave(expected));

      cleaner.reset();
      Channels planar = input;
      forEachBlock(blocks, frames, [&](std::size_t at, std::size_t length) {
        std::vector<float*> places;
        for (auto& channel : planar)
          places.push_back(channel.data() + at);
        cleaner.process(places, places, length);
      });
      expectClose(interleave(planar), interleave(expected));
    }
  }
}

TEST(StreamCleaner, BlocksOfSeveralStreamsGiveWhatEachGives) {
  orvel::Library library;
  load(library, "model", makeModel({.version = "0.0.3"}));
  const std::pair<int, int> kinds[] = {{16000, 1}, {16000, 3}, {44100, 2}, {8000, 1}};
  std::vector<orvel::StreamCleaner> alone, together;
  std::vector<std::vector<float>> inputs, expected, outputs;
  for (const auto& [rate, channels] : kinds) {
    const orvel::StreamOptions options{.rate = rate, .channels = channels, .model = "model"};
    alone.emplace_back(library, options);
    together.emplace_back(library, options);
    inputs.push_back(interleave(makeChannels(rate, static_cast<std::size_t>(channels), 1.0)));
    expected.emplace_back(inputs.back().size());
    outputs.emplace_back(inputs.back().size());
    alone.back().process(std::span<const float>(inputs.back()), expected.back());
  }
  // Blocks of different lengths, some empty, until the longest stream is through.
  std::vector<std::size_t> at(alone.size(), 0);
  for (std::size_t turn = 0; turn < 200; ++turn) {
    std::vector<orvel::StreamCleaner::Block> blocks;
    for (std::size_t s = 0; s < alone.size(); ++s) {
      const std::size_t frames = std::array{160, 1000, 0, 77, 441}[(turn + s) % 5];
      const std::size_t size = std::min(frames * alone[s].channels(), inputs[s].size() - at[s]);
      blocks.push_back({together[s], std::span<const float>(inputs[s]).subspan(at[s], size),
                        std::span(outputs[s]).subspan(at[s], size)});
      at[s] += size;
    }
    orvel::StreamCleaner::process(blocks);
  }
  for (std::size_t s = 0; s < alone.size(); ++s) {
    SCOPED_TRACE(s);
    ASSERT_EQ(at[s], inputs[s].size());
    expectClose(outputs[s], expected[s]);
  }
}

TEST(StreamCleaner, SixteenBitSamplesGiveWhatFramesGive) {
  orvel::Library library;
  load(library, "model", makeModel({.version = "0.0.3"}));
  const std::vector<std::int16_t> input = speechLike(44100, 0.2);
  orvel::StreamCleaner cleaner(library, {.rate = 44100});
  std::vector<std::int16_t> output = input;
  bool asPlanar = false;
  forEachBlock(kBlocks[2], input.size(), [&](std::size_t at, std::size_t length) {
    const auto part = std::span(output).subspan(at, length);
    const std::array places{part.data()};
    asPlanar = !asPlanar;
    if (asPlanar) cleaner.process(places, places, length);
    if (!asPlanar) cleaner.process(part, part);
  });
  EXPECT_EQ(output, frameByFrame(library, 44100, input));
}

TEST(StreamCleaner, FlushGivesTheRestOfEverySample) {
  orvel::Library library;
  load(library, "pass", makeAllPass(16000));
  const Channels input = makeChannels(16000, 2);
  const std::size_t frames = input.front().size();
  orvel::StreamCleaner cleaner(library, {.rate = 16000, .channels = 2, .model = "pass"});
  std::vector<float> output = interleave(input);
  const std::vector<float> interleaved = output;
  cleaner.process(interleaved, output);
  output.resize(2 * (frames + cleaner.latency()));
  const std::span<float> tail = std::span(output).subspan(2 * frames);
  cleaner.flush(tail.first(2 * 100));
  cleaner.flush(tail.subspan(2 * 100));
  for (std::size_t i = 0; i < interleaved.size(); ++i)
    ASSERT_NEAR(output[i + 2 * cleaner.latency()], interleaved[i], 1e-4) << i;

  cleaner.reset();
  Channels planar = input;
  for (auto& channel : planar)
    channel.resize(frames + cleaner.latency());
  std::array places{planar[0].data(), planar[1].data()};
  cleaner.process(places, places, frames);
  for (float*& place : places)
    place += frames;
  cleaner.flush(places, cleaner.latency());
  EXPECT_TRUE(interleave(planar) == output) << "planar and in place, after a reset";
}

TEST(StreamCleaner, AttenuationLimitHoldsForAllChannelsAndSurvivesAReset) {
  orvel::Library library;
  load(library, "closed", makeFlatModel("0.0.2", 16000, 32, -60.0F));  // lets nothing pass
  const std::vector<float> input = interleave(makeChannels(16000, 2));
  std::vector<float> unlimited(input.size()), limited(input.size()), again(input.size());
  orvel::StreamCleaner cleaner(library, {.rate = 16000, .channels = 2});
  cleaner.process(input, unlimited);
  EXPECT_EQ(unlimited, std::vector<float>(input.size(), 0.0F));
  cleaner.reset();
  cleaner.setAttenuationLimit(0.0F);
  cleaner.process(input, limited);
  const std::size_t lag = 2 * cleaner.latency();
  for (std::size_t i = lag; i < input.size(); ++i)
    ASSERT_NEAR(limited[i], input[i - lag], 1e-4) << i;
  cleaner.reset();
  cleaner.process(input, again);
  EXPECT_EQ(again, limited);
}

TEST(VoiceDetector, AnyBlocksGiveTheScoresOfTheMean) {
  orvel::Library library;
  load(library, "voice", makeVadModel());
  for (const auto& [rate, channels] : {std::pair{8000, 3}, {44100, 2}}) {
    const auto count = static_cast<std::size_t>(channels);
    const Channels input = makeChannels(rate, count);
    const std::size_t size = static_cast<std::size_t>(rate) / 100;
    std::vector<float> mean(input.front().size());
    for (std::size_t i = 0; i < mean.size(); ++i) {
      for (const auto& channel : input)
        mean[i] += channel[i];
      mean[i] /= static_cast<float>(count);
    }
    mean.resize((mean.size() + size - 1) / size * size + 2 * size);  // a tail of zeros
    std::vector<float> expected;
    orvel::Detector detector(library, {.rate = rate});
    for (std::size_t at = 0; at < mean.size(); at += size)
      expected.push_back(detector.process(std::span<const float>(mean).subspan(at, size)));
    expected.erase(expected.begin(), expected.begin() + 2);  // 20 ms of lag

    const std::vector<float> interleaved = interleave(input);
    orvel::VoiceDetector voice(library, {.rate = rate, .channels = channels});
    for (const Blocks& blocks : kBlocks) {
      SCOPED_TRACE(testing::Message() << rate << " Hz, " << count << " channels, " << blocks.name);
      std::vector<float> called, stored;
      const auto add = [&](float score) { called.push_back(score); };
      // In turn interleaved and planar.
      bool asPlanar = false;
      forEachBlock(blocks, input.front().size(), [&](std::size_t at, std::size_t length) {
        asPlanar = !asPlanar;
        std::vector<const float*> places;
        for (const auto& channel : input)
          places.push_back(channel.data() + at);
        const auto block = std::span(interleaved).subspan(at * count, length * count);
        if (asPlanar) voice.process(places, length, add);
        if (!asPlanar) voice.process(block, add);
      });
      voice.flush(add);
      voice.reset();
      forEachBlock(blocks, input.front().size(), [&](std::size_t at, std::size_t length) {
        const auto block = std::span(interleaved).subspan(at * count, length * count);
        std::vector<float> scores(voice.scoresAfter(length));
        EXPECT_EQ(voice.process(block, scores), scores.size());
        stored.insert(stored.end(), scores.begin(), scores.end());
      });
      stored.resize(stored.size() + 3);
      stored.resize(stored.size() - 3 + voice.flush(std::span(stored).last(3)));
      voice.reset();
      EXPECT_EQ(called, expected);
      EXPECT_EQ(stored, expected);
    }
  }
}

// --- errors ---------------------------------------------------------------------------------

TEST(CppErrors, NameWhatIsWrong) {
  orvel::Library library;
  load(library, "noise", makeModel({}));
  load(library, "voice", makeVadModel());
  orvel::Cleaner cleaner(library, {.inputRate = 44100, .outputRate = 48000, .model = "noise"});
  orvel::Detector detector(library, {.rate = 8000, .frameMs = 10, .model = "voice"});
  orvel::StreamCleaner stream(library, {.rate = 16000, .channels = 2});
  orvel::VoiceDetector voice(library, {.rate = 16000, .channels = 2});
  std::vector<float> a(960), b(960);
  std::vector<std::int16_t> c(441);
  const std::span in(a), out(b);
  const std::span shorts(c);
  std::vector<float*> three(3, a.data());
  struct Row {
    std::function<void()> call;
    int status;
    std::string text;
  };
  const auto open = [&](int rate, int outRate = 0, int ms = 10, const char* model = "") {
    orvel::Cleaner(library, {rate, outRate, ms, model});
  };
  const Row rows[] = {
      {[&] { cleaner.process(in.first(440), out.first(480)); }, 1,
       "Cleaner::process: input has 440 samples, expected 441"},
      {[&] { cleaner.process(shorts, shorts); }, 1, "output has 441 samples, expected 480"},
      {[&] { detector.process(in.first(81)); }, 1, "input has 81 samples, expected 80"},
      {[&] { stream.process(in.first(3), out.first(3)); }, 1, "expected a multiple of 2 channels"},
      {[&] { stream.process(in.first(4), out.first(6)); }, 1, "output has 6 samples, expected 4"},
      {[&] { stream.process(three, three, 1); }, 1, "input has 3 channels, expected 2"},
      {[&] { stream.flush(out.first(5)); }, 1, "StreamCleaner::flush: output has 5 samples"},
      {[&] { voice.process(in, out.first(0)); }, 1, "scores has room for 0, expected at least 1"},
      {[&] { voice.process(in.first(1), [](float) {}); }, 1, "1 samples, expected a multiple of 2"},
      {[&] { orvel::StreamCleaner(library, {.channels = 0}); }, 1, "channels is 0, expected at"},
      {[&] { stream.setAttenuationLimit(-1.0F); }, 1, ""},
      {[&] { open(11025); }, 2, "the sample rate 11025 is not one of 8000,"},
      {[&] { open(16000, -1); }, 2, "the output's sample rate -1 is not one of"},
      {[&] { open(16000, 0, 15); }, 2, "duration in milliseconds 15 is not one of 10, 20, 30, 40"},
      {[&] { open(16000, 0, 10, "nobody"); }, 2, "no model is loaded under the name 'nobody'"},
      {[&] { open(12000); }, 2, "no model for noise cleaning at 12000 Hz or below is loaded"},
      {[&] { open(8000, 0, 10, "voice"); }, 2, ""},
      {[&] { orvel::VoiceDetector(library, {.rate = 8000, .model = "noise"}); }, 2,
       "the model 'noise' is for noise cleaning, not for voice activity"},
      {[&] { library.loadModel("/no/such/folder/model.ctl"); }, 2, "model.ctl"},
      {[&] { load(library, "noise", makeModel({})); }, 2, "noise"},
      {[&] { load(library, "damaged", std::string("\5\0", 2)); }, 2, ""},
      {[&] { library.model("nobody"); }, 2, ""},
  };
  for (const Row& row : rows) {
    try {
      row.call();
      ADD_FAILURE() << "no error: " << row.text;
    } catch (const orvel::Error& error) {
      EXPECT_THAT(error.what(), HasSubstr(row.text));
      EXPECT_STRNE(error.what(), "");
      EXPECT_THAT(error.what(), testing::Not(HasSubstr("failed with status")))
          << "the library gives a reason";
      EXPECT_EQ(error.status(), row.status) << error.what();
    }
  }
  // A refused call leaves the stream as it was.
  orvel::StreamCleaner fresh(library, {.rate = 16000, .channels = 2});
  std::vector<float> expected(a.size());
  const std::vector<float> signal = interleave(makeChannels(16000, 2));
  fresh.process(std::span(signal).first(960), expected);
  stream.process(std::span(signal).first(960), b);
  EXPECT_EQ(b, expected);
}

// --- models and messages ----------------------------------------------------------------------

TEST(Library, TellsWhatAModelIs) {
  orvel::Library library;
  const TestModel noise = makeModel({.version = "0.0.4", .rate = 32000, .compress = 1});
  const orvel::Model cleaning =
      load(library, "noise", noise, {{"ORVEL_COMPRESS_RATE_v0_0_5", "1"}});
  EXPECT_EQ(cleaning.name, "noise");
  EXPECT_EQ(cleaning.kind, orvel::ModelKind::noiseCleaning);
  EXPECT_EQ(cleaning.version, "0.0.4");
  EXPECT_EQ(cleaning.sampleRate, 32000);
  EXPECT_EQ(cleaning.frameLength, static_cast<std::size_t>(noise.frameLength));
  EXPECT_EQ(cleaning.hop, static_cast<std::size_t>(noise.step));
  orvel::Cleaner session(library, {.inputRate = 32000, .model = "noise"});
  EXPECT_EQ(cleaning.latency, session.latency());
  const TestModel flat = makeFlatModel("0.0.2", 16000, 32, 0.0F);
  EXPECT_EQ(load(library, "flat", flat).weights,
            flat.nonLinear[0].data.size() + flat.nonLinearBias[0].size())
      << "the last linear branch is not used";
  const orvel::Model detecting = load(library, "voice", makeVadModel());
  EXPECT_EQ(detecting.kind, orvel::ModelKind::voiceActivity);
  EXPECT_EQ(library.model("voice").version, detecting.version);
  EXPECT_EQ(orvel::Library::version(), ORV_VERSION_STRING);
}

TEST(Library, HandsMessagesToItsHandlerWhateverThatDoes) {
  std::vector<std::pair<orvel::Severity, std::string>> messages;
  orvel::Library library({}, [&](orvel::Severity severity, std::string_view text) {
    messages.emplace_back(severity, text);
    throw std::runtime_error("ignored");
  });
  load(library, "model", makeModel({}), {{"CONTROLFILE", "x"}, {"ORVEL_SMOOT_COEF_v0_0_1", "7"}});
  orvel::Cleaner cleaner(library, {.inputRate = 16000});
  EXPECT_THROW(orvel::Cleaner(library, {.inputRate = 1}), orvel::Error);
  const std::pair<orvel::Severity, const char*> expected[] = {
      {orvel::Severity::info, "ORVEL_SMOOT_COEF_v0_0_1 = 7"},
      {orvel::Severity::warning, "CONTROLFILE is ignored"},
      {orvel::Severity::warning, "SMOOTH COEF"},
      {orvel::Severity::error, "the sample rate 1 is"}};
  for (const auto& [severity, part] : expected)
    EXPECT_THAT(messages, testing::Contains(testing::Pair(severity, HasSubstr(part))));
  EXPECT_THAT(messages, testing::Each(testing::Pair(testing::_, testing::Not(HasSubstr("\n")))));

  // A refused frame gives no message, and without a handler nothing does.
  messages.clear();
  std::vector<float> frame(1);
  EXPECT_EQ(Orv_NC_CleanAmbientNoiseFloat(cleaner.handle(), frame.data(), 1, frame.data(), 1), 1);
  Orv_Context_SetMessageHandler(library.handle(), nullptr, nullptr);
  EXPECT_THROW(orvel::Cleaner(library, {.inputRate = 1}), orvel::Error);
  EXPECT_TRUE(messages.empty());
}

// --- moves and lifetimes ----------------------------------------------------------------------

TEST(Lifetime, SessionsOutliveTheirLibraryAndCarryOnWhenMoved) {
  const std::vector<float> input = toFloat(speechLike(16000, 0.2));
  std::vector<float> expected(input.size()), output(input.size());
  const std::size_t half = input.size() / 2 + 5;
  std::optional<orvel::Library> library(std::in_place);
  load(*library, "noise", makeModel({}));
  load(*library, "voice", makeVadModel());
  orvel::StreamCleaner whole(*library, {.rate = 16000});
  std::optional<orvel::StreamCleaner> first(std::in_place, *library,
                                            orvel::StreamOptions{.rate = 16000});
  orvel::VoiceDetector voice(*library, {.rate = 16000});
  orvel::Library moved = std::move(*library);
  library.reset();
  whole.process(input, expected);
  {
    const orvel::Library last = std::move(moved);
    EXPECT_EQ(last.model("noise").name, "noise");
  }
  first->process(std::span(input).first(half), std::span(output).first(half));
  orvel::StreamCleaner second = std::move(*first);
  first.reset();
  second.process(std::span(input).subspan(half), std::span(output).subspan(half));
  EXPECT_EQ(output, expected);
  EXPECT_EQ(voice.process(input, output), 18U);
}

TEST(Lifetime, AssigningClosesTheSessionBefore) {
  orvel::Library library;
  load(library, "noise", makeModel({}));
  orvel::Cleaner cleaner(library, {.inputRate = 16000}), other(library, {.inputRate = 48000});
  void* const before = cleaner.handle();
  void* const after = other.handle();
  cleaner = std::move(other);
  EXPECT_EQ(cleaner.handle(), after);
  EXPECT_EQ(cleaner.inputSize(), 480U);
  std::uint32_t latency = 0;
  EXPECT_NE(Orv_NC_GetLatency(before, &latency), 0);
}

}  // namespace
}  // namespace orvel_test
