// A program that calls the frame functions with any samples, counts, pointers and handles, in any
// order, on sessions of all kinds.
#include <array>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz/memory_file.h"
#include "fuzz/require.h"
#include "orvel/orv_sdk.h"
#include "orvel/orv_sdk_ext.h"
#include "tests/support/test_model.h"

namespace {

using orvel_fuzz::MemoryFile;
using orvel_fuzz::require;

constexpr int kRates[] = {8000, 12000, 16000, 24000, 32000, 44100, 48000, 88200, 96000};
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

struct Session {
  void* handle = nullptr;
  bool voice = false;
  std::uint32_t inSize = 0, outSize = 0;
};

void load(const char* name, const orvel_test::TestModel& model, const char* keys) {
  static std::array<MemoryFile, 4> weights;
  static std::size_t used = 0;
  const MemoryFile& file = weights.at(used++);
  file.write(model.weights().bytes());
  const MemoryFile control("WEIGHT " + file.path() + "\n" + keys);
  require(Orv_SDK_SetModel(control.path().c_str(), name) == 0, "a model is loaded");
}

bool start() {
  require(Orv_SDK_GlobalInit(nullptr) == 0, "the library starts");
  load("0", orvel_test::makeModel({.version = "0.0.1"}),
       "ORVEL_ENABLE_THRESH_CUT_v0_0_1 TRUE\nORVEL_ENABLE_CLIP_FIX_v0_0_1 TRUE\n");
  load("1", orvel_test::makeModel({.version = "0.0.5", .compress = 2}),
       "ORVEL_SKIP_FRAME_v0_0_5 TRUE\nORVEL_ENABLE_RM_THRESHOLD_v0_0_5 TRUE\n");
  load("2", orvel_test::makeModel({.version = "0.0.3", .rate = 8000, .frameMs = 30}),
       "ORVEL_SMOOT_COEF_v0_0_3 0.3\nORVEL_SMOOT_RM_MODIFY_v0_0_3 TRUE\n");
  load("3", orvel_test::makeVadModel(), "ORVEL_VAD_ENABLE_STATE_RESET_v0_0_1 TRUE\n");
  return true;
}

Session open(Input& input) {
  const unsigned which = input.take<std::uint8_t>() % 4;
  const int ms = 10 * (1 + input.take<std::uint8_t>() % 4);
  const int inRate = kRates[input.take<std::uint8_t>() % std::size(kRates)];
  const int outRate = kRates[input.take<std::uint8_t>() % std::size(kRates)];
  const std::string name = std::to_string(which);
  const auto inSize = static_cast<std::uint32_t>(inRate * ms / 1000);
  Session session;
  if (which == 3) {
    session = {Orv_VAD_CreateSession(inRate, ms, name.c_str()), true, inSize, 1};
  } else {
    session = {Orv_NC_CreateSession(inRate, outRate, ms, name.c_str()), false, inSize,
               static_cast<std::uint32_t>(outRate * ms / 1000)};
  }
  require(session.handle != nullptr, "a session is opened");
  return session;
}

void close(Session& session) {
  if (session.handle == nullptr) return;
  require((session.voice ? Orv_VAD_CloseSession : Orv_NC_CloseSession)(session.handle) == 0,
          "a session is closed");
  session.handle = nullptr;
}

template <class Sample>
void goodFrame(const Session& session, Input& input) {
  constexpr bool kFloat = std::is_same_v<Sample, float>;
  std::vector<Sample> in(session.inSize);
  std::vector<Sample> out(session.outSize);
  input.fill(in.data(), in.size());
  if (session.voice) {
    float score = NAN;
    int status = 0;
    if constexpr (kFloat) {
      status = Orv_VAD_ProcessFloat(session.handle, in.data(), session.inSize, &score);
    } else {
      status = Orv_VAD_ProcessInt16(session.handle, in.data(), session.inSize, &score);
    }
    require(status == 0 && score >= 0.0F && score < 1.0F, "a frame is scored");
    return;
  }
  if constexpr (kFloat) {
    require(Orv_NC_CleanAmbientNoiseFloat(session.handle, in.data(), session.inSize, out.data(),
                                          session.outSize) == 0,
            "a frame is cleaned");
    for (const float sample : out)
      require(sample >= -1.0F && sample < 1.0F, "output is finite and in range");
  } else {
    require(Orv_NC_CleanAmbientNoiseInt16(session.handle, in.data(), session.inSize, out.data(),
                                          session.outSize) == 0,
            "a frame is cleaned");
  }
}

// Any handle, any counts and now and then no array: refused, or right after all.
void wildFrame(const std::array<Session, kSessions>& sessions, Input& input) {
  const Session& session = sessions[input.take<std::uint8_t>() % kSessions];
  const auto choice = input.take<std::uint8_t>();
  void* handle = (choice & 1U) != 0 ? session.handle : input.take<void*>();
  const auto inCount = (choice & 2U) != 0 ? session.inSize : input.take<std::uint32_t>();
  const auto outCount = (choice & 4U) != 0 ? session.outSize : input.take<std::uint32_t>();
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
  [[maybe_unused]] static const bool started = start();
  Input input(data, size);
  std::array<Session, kSessions> sessions;
  while (!input.empty()) {
    const auto action = input.take<std::uint8_t>();
    Session& session = sessions[(action >> 4U) % kSessions];
    const unsigned kind = action % 8;
    if (kind == 0 || session.handle == nullptr) {
      void* const old = session.handle;
      const bool voice = session.voice;
      close(session);
      if (old != nullptr)
        require((voice ? Orv_VAD_CloseSession : Orv_NC_CloseSession)(old) == -3,
                "a closed handle is refused");
      session = open(input);
    } else if (kind <= 3) {
      goodFrame<float>(session, input);
    } else if (kind <= 5) {
      goodFrame<std::int16_t>(session, input);
    } else if (kind == 6) {
      wildFrame(sessions, input);
    } else if (!session.voice) {
      const auto limit = input.take<float>();
      const bool good = std::isfinite(limit) && limit >= 0.0F;
      require((Orv_NC_SetAttenuationLimit(session.handle, limit) == 0) == good,
              "a limit is taken when it is one");
    }
  }
  for (Session& session : sessions)
    close(session);
  return 0;
}
