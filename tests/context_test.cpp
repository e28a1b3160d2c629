// Contexts: apart from each other and from the global instance, silent, with a reason for every failure.
#include <sys/stat.h>

#include <clocale>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <thread>

#include "tests/support/sdk.h"
#include "tests/support/signals.h"

namespace orvel_test {
namespace {

struct DestroyContext {
  void operator()(void* context) const { EXPECT_EQ(Orv_Context_Destroy(context), 0); }
};
using Context = std::unique_ptr<void, DestroyContext>;

// A folder of models, a context on it, and everything that went to the standard streams meanwhile: nothing.
class ContextTest : public testing::Test {
 protected:
  void SetUp() override {
    write("noise", makeModel({}));
    write("voice", makeVadModel());
    context_ = makeContext();
  }
  void TearDown() override {
    context_.reset();
    const std::string printed = capture_->out() + capture_->err();
    capture_.reset();
    if (HasFailure()) {
      std::cout << printed;  // the failures among it
    } else {
      EXPECT_EQ(printed, "");
    }
  }

  Context makeContext() { return Context(Orv_Context_Create(dir_.path().c_str())); }
  void write(const std::string& name, const TestModel& model, const std::string& keys = "") {
    dir_.write(name + ".bin", model.weights().bytes());
    dir_.write(name + ".ctl", "WEIGHT " + name + ".bin\n" + keys);
  }
  int load(const std::string& control, const char* name = nullptr) {
    return Orv_Context_SetModel(context_.get(), control.c_str(), name);
  }
  std::string lastError(void* context) { return Orv_Context_LastError(context); }
  std::string lastError() { return lastError(context_.get()); }
  void* open(const char* name, int inRate = 16000, int outRate = 16000) {
    return Orv_Context_CreateCleaner(context_.get(), inRate, outRate, 10, name);
  }

  std::optional<Capture> capture_{std::in_place};
  TempDir dir_;
  Context context_;
};

std::vector<int16_t> cleaned(void* session, int seconds = 1) {
  return cleanStream(session, speechLike(16000, 0.3 * seconds), 160, 160);
}

TEST_F(ContextTest, SeesNothingOfOthers) {
  TempDir elsewhere;
  elsewhere.write("noise.bin", makeModel({.seed = 7}).weights().bytes());
  elsewhere.write("noise.ctl", "WEIGHT noise.bin\n");
  Context other(Orv_Context_Create(elsewhere.path().c_str()));
  ASSERT_EQ(load("noise.ctl"), 0) << lastError();
  EXPECT_EQ(Orv_Context_CreateCleaner(other.get(), 16000, 16000, 10, "noise"), nullptr);
  ASSERT_EQ(Orv_Context_SetModel(other.get(), "noise.ctl", nullptr), 0);
  void* mine = open("noise");
  void* its = Orv_Context_CreateCleaner(other.get(), 16000, 16000, 10, "noise");
  const std::vector<int16_t> expected = cleaned(open("noise"));
  EXPECT_EQ(cleaned(mine), expected);
  EXPECT_NE(cleaned(its), expected);

  // The global instance comes and goes beside them, and the other context goes.
  ASSERT_EQ(Orv_SDK_GlobalInit(dir_.path().c_str()), 0);
  EXPECT_EQ(Orv_NC_CreateSession(16000, 16000, 10, "noise"), nullptr);
  EXPECT_NE(capture_->err(), "");
  EXPECT_EQ(Orv_SDK_GlobalDestroy(), 0);
  other.reset();
  int16_t frame[160] = {};
  EXPECT_EQ(clean(its, frame, 160, frame, 160), -3);
  EXPECT_NE(capture_->err(), "");
  EXPECT_EQ(clean(mine, frame, 160, frame, 160), 0);
  EXPECT_EQ(Orv_NC_CloseSession(mine), 0);
}

TEST_F(ContextTest, HandlesAreLookedUp) {
  ASSERT_EQ(load("noise.ctl"), 0);
  ASSERT_EQ(load("voice.ctl"), 0);
  void* cleaner = open("noise");
  void* detector = Orv_Context_CreateDetector(context_.get(), 8000, 10, "voice");
  uint32_t latency = 0;
  EXPECT_EQ(Orv_VAD_ResetSession(cleaner), 2);
  EXPECT_EQ(Orv_NC_ResetSession(detector), 2);
  int place = 0;
  void* const gone = context_.get();
  ASSERT_EQ(Orv_Context_Destroy(context_.release()), 0);
  for (void* handle : {gone, cleaner, static_cast<void*>(&place), static_cast<void*>(nullptr)}) {
    EXPECT_EQ(Orv_Context_SetModel(handle, "noise.ctl", nullptr), 2);
    EXPECT_EQ(Orv_Context_CreateCleaner(handle, 16000, 16000, 10, nullptr), nullptr);
    EXPECT_EQ(Orv_Context_SetMessageHandler(handle, nullptr, nullptr), 2);
    EXPECT_EQ(Orv_Context_Destroy(handle), 2);
    EXPECT_EQ(lastError(handle), "the handle is not that of a context");
  }
  EXPECT_EQ(Orv_NC_GetLatency(cleaner, &latency), -3);
  EXPECT_EQ(lastError(nullptr), "the handle is not that of an open session");
  EXPECT_EQ(Orv_NC_CloseSession(cleaner), -3);
  EXPECT_NE(capture_->err(), "");
  context_ = makeContext();
  EXPECT_NE(context_.get(), gone);
}

TEST_F(ContextTest, EveryFailedLoadHasItsReason) {
  const std::string sound = makeModel({}).weights().bytes();
  const auto cut = sound.substr(0, sound.size() / 2);
  const auto changed = [](const std::function<void(WeightBuilder&)>& change) {
    WeightBuilder weights = makeModel({}).weights();
    change(weights);
    return weights.bytes();
  };
  dir_.write("deep/models/inside.ctl", "WEIGHT noise.bin\n");
  dir_.write("deep/models/outside.ctl", "WEIGHT ../../../noise.bin\n");
  mkfifo(dir_.file("pipe.ctl").c_str(), 0600);
  struct Row {
    const char* control;  // "test.ctl" names test.bin
    std::string weights;
    std::vector<std::string> reason;
  };
  const std::string bin = dir_.file("test.bin") + ": ";
  const Row rows[] = {
      {"missing.ctl", "", {dir_.file("missing.ctl"), "No such file"}},
      {"pipe.ctl", "", {"pipe.ctl: is not a regular file"}},
      {"noise.bin", "", {"noise.bin: is not a control file", "weight file?"}},
      {"deep/models/outside.ctl", "", {"outside.ctl", "../../../noise.bin", "named with"}},
      {"test.ctl", "", {bin + "is empty"}},
      {"test.ctl", "WEIGHT noise.bin\n", {bin + "is not a weight file", "control file?"}},
      {"test.ctl", std::string("\xff\xff\x01\x02\x03\x04", 6), {bin + "is not a weight file"}},
      {"test.ctl", cut, {bin + "ends inside the record", "truncated?"}},
      {"test.ctl", sound + "x", {bin + "ends inside the name of a record"}},
      {"test.ctl", sound + std::string(64, '\0'), {bin + "holds a record without a name"}},
      {"test.ctl", changed([](auto& w) { w.raw("Odd", 9, ""); }), {bin + "the record 'Odd' is of"}},
      {"test.ctl", sound + sound, {bin + "holds the record", "twice"}},
      {"test.ctl",
       changed([](auto& w) { w.text("Version", "0.0.9"); }),
       {"test.bin (version 0.0.9): Unsupported weight version"}},
      {"test.ctl", changed([](auto& w) { w.drop("Version"); }), {bin, "no Weight version"}},
      {"test.ctl", changed([](auto& w) { w.integer("SampleRate", 44100); }), {"test.bin (version"}},
      {"test.ctl", changed([](auto& w) { w.floats("MU", {1.0F}); }), {"test.bin (version", "MU"}},
  };
  dir_.write("test.ctl", "WEIGHT test.bin\n");
  for (const Row& row : rows) {
    dir_.write("test.bin", row.weights);
    EXPECT_EQ(load(row.control, "new"), 2) << row.reason.front();
    for (const std::string& part : row.reason) {
      EXPECT_NE(lastError().find(part), std::string::npos) << part << " in: " << lastError();
    }
    EXPECT_EQ(open("new"), nullptr) << "a failed load registers nothing";
  }
  const std::pair<const char*, const char*> controls[] = {
      {"", "test.ctl: names no weight file"},
      {"# nothing\nKEY 1\n", "test.ctl: names no weight file"},
      {"WEIGHT noise.bin\n\nKEY\n", "test.ctl: line 3: KEY has no value"},
      {"WEIGHT noise.bin\nKEY 1\nKEY 2\n", "test.ctl: sets the key KEY twice"},
      {"WEIGHT noise.bin\n#SHA256 0123\n", "noise.bin: has not the SHA-256"},
      {"WEIGHT absent.bin\n", "the weight file absent.bin is missing (looked for "},
  };
  for (const auto& [text, reason] : controls) {
    dir_.write("test.ctl", text);
    EXPECT_EQ(load("test.ctl", "new"), 2);
    EXPECT_NE(lastError().find(reason), std::string::npos) << lastError();
  }
  EXPECT_EQ(load("deep/models/inside.ctl", "new"), 0) << lastError();
  // The digest of three letters is that of the standard's example.
  dir_.write("abc.bin", "abc");
  dir_.write(
      "test.ctl",
      "WEIGHT abc.bin\n#SHA256 ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad\n");
  EXPECT_EQ(load("test.ctl", "abc"), 2);
  EXPECT_EQ(lastError().find("SHA-256"), std::string::npos) << lastError();
  EXPECT_EQ(load("noise.ctl", "new"), 2);
  EXPECT_EQ(lastError(), "the model name 'new' is in use");
  EXPECT_EQ(load(dir_.file("noise.ctl"), "absolute"), 0) << lastError();
  EXPECT_EQ(load("deep\\..\\noise.ctl", ""), 0) << lastError();
  EXPECT_NE(open("noise"), nullptr) << "named after its file";
}

// Refused frames say nothing; their reason is kept, for each context and thread.
TEST_F(ContextTest, LastErrorBelongsToThreadAndContext) {
  ASSERT_EQ(load("noise.ctl"), 0);
  EXPECT_EQ(lastError(), "");
  Context other = makeContext();
  EXPECT_EQ(Orv_Context_SetModel(other.get(), "missing.ctl", nullptr), 2);
  void* session = open("noise");
  int16_t frame[160] = {};
  EXPECT_EQ(clean(session, frame, 159, frame, 160), 1);
  const std::string refused =
      "wrong count or null pointer: a frame has 160 samples at the input and 160 at the output";
  EXPECT_EQ(lastError(), refused);
  EXPECT_EQ(clean(session, frame, 160, frame, 160), 0);
  EXPECT_EQ(lastError(), refused) << "success leaves it";
  EXPECT_NE(lastError(other.get()).find("missing.ctl"), std::string::npos);
  EXPECT_EQ(Orv_NC_SetAttenuationLimit(session, -1.0F), 1);
  EXPECT_EQ(lastError(), "the attenuation limit must be finite and not negative");
  EXPECT_EQ(load("missing.ctl"), 2);
  EXPECT_NE(lastError().find("missing.ctl"), std::string::npos);
  std::thread([&] { EXPECT_EQ(lastError() + lastError(other.get()), ""); }).join();
}

// What a model's properties are, cpp_interface_test.cpp shows.
TEST_F(ContextTest, ModelsFromMemoryAndTheirProperties) {
  const std::string weights = makeModel({.version = "0.0.3"}).weights().bytes();
  const std::string keys = "WEIGHT nowhere.bin\nORVEL_SMOOT_COEF_v0_0_3 0.5\n";
  const auto fromMemory = [&](const std::string& text, const std::string& bytes, const char* name) {
    return Orv_Context_SetModelFromMemory(context_.get(), text.data(), text.size(), bytes.data(),
                                          bytes.size(), name);
  };
  EXPECT_EQ(fromMemory(keys, weights, "memory"), 0) << lastError();
  EXPECT_EQ(Orv_Context_SetModelFromMemory(context_.get(), nullptr, 0, weights.data(),
                                           weights.size(), "plain"),
            0);
  EXPECT_NE(cleaned(open("plain")), cleaned(open("memory")));
  EXPECT_EQ(fromMemory(keys, weights, ""), 2);
  EXPECT_EQ(fromMemory("KEY", weights, "new"), 2);
  EXPECT_EQ(lastError(), "the control text: line 1: KEY has no value");
  EXPECT_EQ(fromMemory(keys, weights.substr(1), "new"), 2);
  EXPECT_EQ(lastError().rfind("the weights in memory: ", 0), 0U) << lastError();

  // A caller of a shorter structure gets no more than it has room for.
  ASSERT_EQ(load("voice.ctl"), 0);
  OrvModelInfo info{};
  info.size = offsetof(OrvModelInfo, frameLength);
  info.hop = 77;
  ASSERT_EQ(Orv_Context_GetModelInfo(context_.get(), "voice", &info), 0);
  EXPECT_EQ(info.sampleRate, 8000U);
  EXPECT_EQ(info.hop, 77U);
  info.size = 4;
  EXPECT_EQ(Orv_Context_GetModelInfo(context_.get(), "voice", &info), 1);
  EXPECT_EQ(Orv_Context_GetModelInfo(context_.get(), "voice", nullptr), 1);
}

TEST_F(ContextTest, TwoThreadsInTwoContexts) {
  ASSERT_EQ(load("noise.ctl"), 0);
  const std::vector<int16_t> expected = cleaned(open("noise"), 3);
  const auto work = [&] {
    for (int round = 0; round < 20; ++round) {
      const Context own = makeContext();
      ASSERT_EQ(Orv_Context_SetModel(own.get(), "noise.ctl", nullptr), 0);
      void* session = Orv_Context_CreateCleaner(own.get(), 16000, 16000, 10, "noise");
      ASSERT_EQ(cleaned(session, 3), expected);
    }
  };
  std::thread first(work), second(work);
  first.join();
  second.join();
}

// Sets a locale with a decimal comma, made for the purpose: no language need be installed.
bool setDecimalComma(const TempDir& dir) {
  dir.write("comma",
            "LC_NUMERIC\ndecimal_point \",\"\nthousands_sep \".\"\ngrouping 3;3\nEND LC_NUMERIC\n");
  const std::string build = "localedef -c -f ANSI_X3.4-1968 -i '" + dir.file("comma") + "' '" +
                            dir.file("comma_XX") + "' > /dev/null 2>&1";
  if (std::system(build.c_str()) < 0) return false;
  setenv("LOCPATH", dir.path().c_str(), 1);
  return setlocale(LC_NUMERIC, "comma_XX") != nullptr && *localeconv()->decimal_point == ',';
}

TEST_F(ContextTest, NumbersAreReadAsInTheCLocale) {
  write("half", makeModel({}), "ORVEL_SMOOT_COEF_v0_0_1 0.5\n");
  write("one", makeModel({}), "ORVEL_SMOOT_COEF_v0_0_1 1\n");
  ASSERT_EQ(load("half.ctl"), 0);
  ASSERT_EQ(load("one.ctl"), 0);
  const std::vector<int16_t> expected = cleaned(open("half"));
  const TempDir locales;
  const bool isSet = setDecimalComma(locales);
  const std::vector<int16_t> output = cleaned(open("half"));
  setlocale(LC_NUMERIC, "C");
  unsetenv("LOCPATH");
  ASSERT_TRUE(isSet) << "localedef cannot make a locale here: it needs the package locales";
  EXPECT_EQ(output, expected);
  EXPECT_NE(cleaned(open("one")), expected);
}

}  // namespace
}  // namespace orvel_test
