// A program that calls the frame functions with any samples, counts, pointers and handles, in any
// order, on sessions of all kinds.
#include <array>
#include <cmath>
#include <optional>
#include <orvel/orvel.hpp>
#include <span>
#include <string>
#include <type_traits>
#include <vector>

#include "fuzz/support.h"
#include "tests/support/test_model.h"

namespace {

using orvel::kSampleRates;
using orvel_fuzz::require;

constexpr std::size_t kSessions = 3;

class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : data_(data), left_(size) {}
  bool empty() const { return left_ == 0; }
  template <class T>
  T take() {
    T value{};
    fill(&value, 1);
    return value;
  }
  // Repeats what is left when it is too short.
  template <class T>
  void fill(T* values, std::size_t count) {
    auto* bytes = reinterpret_cast<std::uint8_t*>(values);
    const std::size_t wanted = count * sizeof(T);
    for (std::size_t i = 0; i < wanted; ++i)
      bytes[i] = left_ == 0 ? 0 : data_[i % left_];
    const std::size_t used = wanted < left_ ? wanted : left_;
    data_ += used;
    left_ -= used;
  }

 private:
  const std::uint8_t* data_;
  std::size_t left_;
};

// Nothing, a cleaner or a detector.
struct Session {
  std::optional<orvel::Cleaner> cleaner;
  std::optional<orvel::Detector> detector;

  bool isOpen() const { return cleaner || detector; }
  void* handle() const {
    return cleaner ? cleaner->handle() : detector ? detector->handle() : nullptr;
  }
  std::size_t inSize() const {
    return cleaner ? cleaner->inputSize() : detector ? detector->frameSize() : 0;
  }
  std::size_t outSize() const { return cleaner ? cleaner->outputSize() : 0; }
  void close() {
    cleaner.reset();
    detector.reset();
  }
};

orvel::Library loaded() {
  orvel::Library library;
  const auto load = [&](const char* name, const orvel_test::TestModel& model, const char* keys) {
    const std::string weights = model.weights().bytes();
    library.loadModelFromMemory(keys, std::as_bytes(std::span(weights)), name);
  };
  load("0", orvel_test::makeModel({.version = "0.0.1"}),
       "ORVEL_ENABLE_THRESH_CUT_v0_0_1 TRUE\nORVEL_ENABLE_CLIP_FIX_v0_0_1 TRUE\n");
  load("1", orvel_test::makeModel({.version = "0.0.5", .compress = 2}),
       "ORVEL_COMPRESS_RATE_v0_0_5 2\nORVEL_SKIP_FRAME_v0_0_5 TRUE\n"
       "ORVEL_ENABLE_RM_THRESHOLD_v0_0_5 TRUE\n");
  load("2", orvel_test::makeModel({.version = "0.0.3", .rate = 8000, .frameMs = 30}),
       "ORVEL_SMOOT_COEF_v0_0_3 0.3\nORVEL_SMOOT_RM_MODIFY_v0_0_3 TRUE\n");
  load("3", orvel_test::makeVadModel(), "ORVEL_VAD_ENABLE_STATE_RESET_v0_0_1 TRUE\n");
  return library;
}

void open(Session& session, Input& input) {
  static const orvel::Library library = loaded();
  const unsigned which = input.take<std::uint8_t>() % 4;
  const int ms = 10 * (1 + input.take<std::uint8_t>() % 4);
  const int inRate = kSampleRates[input.take<std::uint8_t>() % kSampleRates.size()];
  const int outRate = kSampleRates[input.take<std::uint8_t>() % kSampleRates.size()];
  const std::string model = std::to_string(which);
  void* const old = session.handle();
  const bool voice = session.detector.has_value();
  session.close();
  require(old == nullptr || (voice ? Orv_VAD_CloseSession : Orv_NC_CloseSession)(old) == -3,
          "a closed handle is refused");
  if (which == 3) {
    session.detector.emplace(library, orvel::DetectorOptions{inRate, ms, model});
  } else {
    session.cleaner.emplace(library, orvel::CleanerOptions{inRate, outRate, ms, model});
  }
}

template <class Sample>
void goodFrame(Session& session, Input& input) {
  std::vector<Sample> in(session.inSize());
  std::vector<Sample> out(session.outSize());
  input.fill(in.data(), in.size());
  if (session.detector) {
    const float score = session.detector->process(std::span<const Sample>(in));
    require(score >= 0.0F && score < 1.0F, "a score is a probability");
    return;
  }
  session.cleaner->process(in, out);
  if constexpr (std::is_same_v<Sample, float>) {
    for (const float sample : out)
      require(sample >= -1.0F && sample < 1.0F, "output is finite and in range");
  }
}

// Any handle, any counts and now and then no array: refused, or right after all.
void wildFrame(const std::array<Session, kSessions>& sessions, Input& input) {
  const Session& session = sessions[input.take<std::uint8_t>() % kSessions];
  const auto choice = input.take<std::uint8_t>();
  void* handle = (choice & 1U) != 0 ? session.handle() : input.take<void*>();
  const auto inCount = (choice & 2U) != 0 ? static_cast<std::uint32_t>(session.inSize())
                                          : input.take<std::uint32_t>();
  const auto outCount = (choice & 4U) != 0 ? static_cast<std::uint32_t>(session.outSize())
                                           : input.take<std::uint32_t>();
  // Room for whatever an open session may read or write once it accepts the counts.
  constexpr std::size_t kRoom = 96000 * 40 / 1000;
  std::vector<float> in(kRoom);
  std::vector<float> out(kRoom);
  const float* from = (choice & 8U) != 0 ? in.data() : nullptr;
  float* to = (choice & 16U) != 0 ? out.data() : nullptr;
  if ((choice & 32U) != 0) {
    Orv_NC_CleanAmbientNoiseFloat(handle, from, inCount, to, outCount);
  } else {
    Orv_VAD_ProcessFloat(handle, from, inCount, to);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  std::array<Session, kSessions> sessions;
  while (!input.empty()) {
    const auto action = input.take<std::uint8_t>();
    Session& session = sessions[(action >> 4U) % kSessions];
    const unsigned kind = action % 8;
    if (kind == 0 || !session.isOpen()) {
      open(session, input);
    } else if (kind <= 3) {
      goodFrame<float>(session, input);
    } else if (kind <= 5) {
      goodFrame<std::int16_t>(session, input);
    } else if (kind == 6) {
      wildFrame(sessions, input);
    } else {
      const auto limit = input.take<float>();
      const bool good = session.cleaner && std::isfinite(limit) && limit >= 0.0F;
      require((Orv_NC_SetAttenuationLimit(session.handle(), limit) == 0) == good,
              "a limit is taken when it is one");
    }
  }
  return 0;
}
