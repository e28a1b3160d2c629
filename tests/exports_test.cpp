// Life cycle, handles, misuse: status codes, texts and the streams they go to.
#include <climits>
#include <limits>

#include "tests/support/sdk.h"
#include "tests/support/signals.h"

namespace orvel_test {
namespace {

std::string exceptionText(const std::string& file, int line, const std::string& function,
                          const std::string& message) {
  return "ORVEL_Exeption in file " + file + " Line " + std::to_string(line) + " Function " +
         function + "\n messege " + message + "\n";
}

const std::string kNoInstance =
    exceptionText("orv-sdk/instance", 35, "Instance", "TRY TO GET NULL INSTANCE,ISN'T INITIALIZED");
const std::string kBadClose =
    exceptionText("orv-sdk/orv-sdk", 37, "closeSession",
                  "Trying to close a non-existant session or session of incompatible type");
const char* const kWrongPointer = "The Session pointer is wrong insert existing session pointer\n";

int cleanNothing(void* session) {
  std::vector<int16_t> frame(160);
  return clean(session, frame.data(), 160, frame.data(), 160);
}
int score(void* session) {
  const std::vector<int16_t> frame(80);
  float value = 0.0F;
  return Orv_VAD_ProcessInt16(session, frame.data(), 80, &value);
}
int latency(void* session) {
  uint32_t samples = 0;
  return Orv_NC_GetLatency(session, &samples);
}
int limit(void* session) { return Orv_NC_SetAttenuationLimit(session, 6.0F); }

struct HandleCall {
  const char* name;
  int (*call)(void*);
};
const HandleCall kHandleCalls[] = {
    {"clean", cleanNothing}, {"score", score}, {"latency", latency}, {"limit", limit}};

// --- without an instance --------------------------------------------------------------------

TEST(LifeCycle, EveryCallNeedsAnInstance) {
  Capture capture;
  int place = 0;
  for (const HandleCall& handle : kHandleCalls) {
    EXPECT_EQ(handle.call(&place), -3) << handle.name;
    EXPECT_EQ(capture.err(), kNoInstance) << handle.name;
  }
  EXPECT_EQ(Orv_NC_CloseSession(&place), -3);
  EXPECT_EQ(Orv_VAD_CloseSession(nullptr), -3);
  EXPECT_EQ(Orv_SDK_SetModel("model.ctl", "model"), -3);
  EXPECT_EQ(Orv_NC_CreateSession(16000, 16000, 10, nullptr), nullptr);
  EXPECT_EQ(Orv_VAD_CreateSession(16000, 10, "model"), nullptr);
  EXPECT_EQ(capture.err(), kNoInstance + kNoInstance + kNoInstance + kNoInstance + kNoInstance);
  EXPECT_EQ(Orv_SDK_GlobalDestroy(), -3);
  EXPECT_EQ(capture.err(),
            exceptionText("orv-sdk/instance", 52, "Instance", "DESTROYING WITHOUT INTIALIZATION"));
  EXPECT_EQ(capture.out(), "");
  EXPECT_EQ(Orv_SDK_SetModel(nullptr, "model"), 2) << "refused before the instance is looked at";
  EXPECT_EQ(capture.out(), "WARRNING Orv_SetWeight FUNCTION CALL with nullptr\n");
}

TEST(LifeCycle, CyclesAndDoubleInit) {
  Capture capture;
  for (int cycle = 0; cycle < 3; ++cycle) {
    EXPECT_EQ(Orv_SDK_GlobalInit(nullptr), 0);
    EXPECT_EQ(Orv_SDK_GlobalInit("elsewhere"), -3);
    EXPECT_EQ(capture.err(), exceptionText("orv-sdk/instance", 43, "Instance",
                                           "DOUBLE INITIALIZATION WITHOUT DESTROYING"));
    EXPECT_EQ(Orv_SDK_GlobalDestroy(), 0);
  }
  EXPECT_EQ(capture.out() + capture.err(), "");
}

// --- with two models ------------------------------------------------------------------------

class Exports : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(sdk_.load("noise", makeModel({})), 0);
    ASSERT_EQ(sdk_.load("voice", makeVadModel()), 0);
  }
  Sdk sdk_;
};

TEST_F(Exports, OnlyNineRatesAreTaken) {
  const int good[] = {8000, 12000, 16000, 24000, 32000, 44100, 48000, 88200, 96000};
  Capture capture;
  for (const int rate : good) {
    void* session = Orv_NC_CreateSession(rate, 16000, 20, "noise");
    EXPECT_NE(session, nullptr) << rate;
    EXPECT_EQ(Orv_NC_CloseSession(session), 0);
  }
  EXPECT_EQ(capture.err(), "");
  for (const int rate : {0, -16000, 7999, 8001, 11025, 22050, 64000, 192000, INT_MAX, INT_MIN}) {
    EXPECT_EQ(Orv_NC_CreateSession(rate, 16000, 10, "noise"), nullptr) << rate;
    EXPECT_EQ(Orv_NC_CreateSession(16000, rate, 10, "noise"), nullptr) << rate;
    EXPECT_EQ(Orv_VAD_CreateSession(rate, 10, "voice"), nullptr) << rate;
    EXPECT_EQ(capture.err(),
              "Unsupported Sampling rates!\nUnsupported Sampling rates!\nUnsupported Sampling "
              "rates!\n");
  }
}

TEST_F(Exports, OnlyFourDurationsAreTaken) {
  const std::string text = exceptionText("orv-sdk/session", 58, "OrvSessionT",
                                         "RESAMPLER WORKS WITH WRONG FRAMEDURATION ");
  Capture capture;
  for (const int ms : {0, -10, 1, 5, 15, 25, 50, INT_MAX, INT_MIN}) {
    EXPECT_EQ(Orv_NC_CreateSession(44100, 48000, ms, "noise"), nullptr) << ms;
    EXPECT_EQ(capture.err(), text) << ms;
    EXPECT_EQ(Orv_VAD_CreateSession(44100, ms, "voice"), nullptr) << ms;
    EXPECT_NE(capture.err().find(text), std::string::npos) << ms;
  }
  EXPECT_EQ(Orv_NC_CreateSession(16000, 16000, 11, "nobody"), nullptr);
  EXPECT_EQ(capture.err(), exceptionText("noise_canceller/noise_cleaner", 0, "create",
                                         "Weight with this name isn't found"))
      << "an unknown model is reported before a wrong duration";
}

TEST_F(Exports, CountsAndPointersMustFit) {
  Capture capture;
  void* session = Orv_NC_CreateSession(44100, 48000, 10, "noise");
  ASSERT_NE(session, nullptr);
  const std::string sizes = "\n input size must be 441\n output size must be 480\n";
  const std::string textOfInt16 =
      "ERROR input dataSize or output dataSize or pointers of inputData output Data is wrong" +
      sizes;
  const std::string textOfFloat = "ERROR input dataSize or output dataSize is wrong " + sizes;
  std::vector<int16_t> a(2000, 1000), b(2000, 77);
  std::vector<float> c(2000, 0.1F), d(2000, 77.0F);
  struct Row {
    size_t in, out;
    bool hasInput = true, hasOutput = true;
  };
  const Row rows[] = {{440, 480},
                      {442, 480},
                      {441, 479},
                      {441, 481},
                      {0, 0},
                      {480, 441},
                      {UINT32_MAX, 480},
                      {441, 480, false, true},
                      {441, 480, true, false}};
  for (const auto& [in, out, hasInput, hasOutput] : rows) {
    EXPECT_EQ(
        clean(session, hasInput ? a.data() : nullptr, in, hasOutput ? b.data() : nullptr, out), 1);
    EXPECT_EQ(capture.err(), textOfInt16);
    EXPECT_EQ(
        clean(session, hasInput ? c.data() : nullptr, in, hasOutput ? d.data() : nullptr, out), 1);
    EXPECT_EQ(capture.err(), textOfFloat);
  }
  EXPECT_EQ(b, std::vector<int16_t>(2000, 77)) << "a rejected frame wrote output";
  EXPECT_EQ(d, std::vector<float>(2000, 77.0F)) << "a rejected frame wrote output";

  // The stream goes on as if the rejected frames had never been.
  void* fresh = Orv_NC_CreateSession(44100, 48000, 10, "noise");
  const std::vector<int16_t> input = speechLike(44100, 0.1);
  EXPECT_EQ(cleanStream(session, input, 441, 480), cleanStream(fresh, input, 441, 480));
  EXPECT_EQ(capture.out() + capture.err(), "");
}

TEST_F(Exports, ForeignAndClosedHandlesAreRefused) {
  Capture capture;
  void* closed = Orv_NC_CreateSession(16000, 16000, 10, "noise");
  EXPECT_EQ(Orv_NC_CloseSession(closed), 0);
  EXPECT_EQ(Orv_NC_CloseSession(closed), -3);
  EXPECT_EQ(capture.err(), kBadClose);
  void* open = Orv_NC_CreateSession(16000, 16000, 10, "noise");
  int place = 0;
  std::vector<void*> foreign = {nullptr, closed, &place};
  for (int bit = 0; bit < 64; ++bit) {  // one bit away from an open handle
    foreign.push_back(reinterpret_cast<void*>(reinterpret_cast<uintptr_t>(open) ^ (1ULL << bit)));
  }
  for (void* handle : foreign) {
    for (const HandleCall& call : kHandleCalls) {
      EXPECT_EQ(call.call(handle), 2) << call.name;
      EXPECT_EQ(capture.err(), kWrongPointer) << call.name;
    }
    EXPECT_EQ(Orv_NC_CloseSession(handle), -3);
    EXPECT_EQ(Orv_VAD_CloseSession(handle), -3);
    EXPECT_EQ(capture.err(), kBadClose + kBadClose);
  }
  EXPECT_EQ(cleanNothing(open), 0);
  EXPECT_EQ(capture.out() + capture.err(), "");
}

TEST_F(Exports, HandlesDieWithTheInstance) {
  void* session = Orv_NC_CreateSession(16000, 16000, 10, "noise");
  ASSERT_EQ(cleanNothing(session), 0);
  ASSERT_EQ(Orv_SDK_GlobalDestroy(), 0);
  Capture capture;
  EXPECT_EQ(cleanNothing(session), -3);
  ASSERT_EQ(Orv_SDK_GlobalInit(sdk_.dir().path().c_str()), 0);
  EXPECT_EQ(cleanNothing(session), 2);
  EXPECT_EQ(Orv_NC_CloseSession(session), -3);
  EXPECT_EQ(Orv_NC_CreateSession(16000, 16000, 10, "noise"), nullptr) << "models die as well";
  ASSERT_EQ(sdk_.load("noise", makeModel({})), 0);
  EXPECT_NE(Orv_NC_CreateSession(16000, 16000, 10, "noise"), session) << "handles do not return";
}

TEST_F(Exports, TheModelDecidesWhatASessionIs) {
  Capture capture;
  void* noise = Orv_NC_CreateSession(16000, 16000, 10, "noise");
  void* voice = Orv_VAD_CreateSession(8000, 10, "voice");
  void* crossed = Orv_NC_CreateSession(8000, 8000, 10, "voice");  // holds a voice-activity model
  void* odd = Orv_VAD_CreateSession(16000, 10, "noise");          // holds a noise-cleaning model
  for (void* session : {noise, voice, crossed, odd})
    ASSERT_NE(session, nullptr);
  for (void* session : {voice, crossed}) {
    EXPECT_EQ(cleanNothing(session), 2);
    EXPECT_EQ(latency(session), 2);
    EXPECT_EQ(limit(session), 2);
    EXPECT_EQ(score(session), 0);
    EXPECT_EQ(Orv_NC_CloseSession(session), -3);
    EXPECT_EQ(Orv_VAD_CloseSession(session), 0);
    EXPECT_EQ(score(session), 2);
  }
  for (void* session : {noise, odd}) {
    EXPECT_EQ(score(session), 2);
    EXPECT_EQ(Orv_VAD_CloseSession(session), -3);
  }
  // Opened for voice activity, it has no output: only a frame without one fits.
  EXPECT_EQ(cleanNothing(odd), 1);
  int16_t in[160] = {};
  int16_t out[1] = {77};
  EXPECT_EQ(clean(odd, in, 160, out, 0), 0);
  EXPECT_EQ(out[0], 77);
  EXPECT_EQ(Orv_NC_CloseSession(noise), 0);
  EXPECT_EQ(Orv_NC_CloseSession(odd), 0);
}

TEST_F(Exports, AttenuationLimitTakesFiniteValuesOnly) {
  Capture capture;
  void* session = Orv_NC_CreateSession(16000, 16000, 10, "noise");
  void* plain = Orv_NC_CreateSession(16000, 16000, 10, "noise");
  const float infinity = std::numeric_limits<float>::infinity();
  for (const float bad :
       {-0.001F, -6.0F, infinity, -infinity, std::numeric_limits<float>::quiet_NaN()}) {
    EXPECT_EQ(Orv_NC_SetAttenuationLimit(session, bad), 1) << bad;
  }
  const std::vector<int16_t> input = speechLike(16000, 0.1);
  EXPECT_EQ(cleanStream(session, input, 160, 160), cleanStream(plain, input, 160, 160));
  EXPECT_EQ(Orv_NC_GetLatency(session, nullptr), 1);
}

// --- choice of the model --------------------------------------------------------------------

TEST(Choice, NearestRateFromBelowFirstOnATie) {
  Sdk sdk;
  Capture capture;
  const std::string none =
      exceptionText("noise_canceller/noise_cleaner", 0, "create", "Weight not found ");
  EXPECT_EQ(Orv_NC_CreateSession(48000, 48000, 10, nullptr), nullptr);
  EXPECT_EQ(capture.err(), none);
  ASSERT_EQ(sdk.load("voice", makeVadModel()), 0);
  const std::pair<const char*, int> models[] = {
      {"wide32", 32000}, {"first16", 16000}, {"second16", 16000}, {"narrow8", 8000}};
  float bias = 0.0F;  // a mask of its own, so the output tells which model was chosen
  for (const auto& [name, rate] : models) {
    if (rate == 8000) {
      EXPECT_EQ(Orv_NC_CreateSession(12000, 12000, 10, nullptr), nullptr);
      EXPECT_EQ(capture.err(), none) << "neither a higher rate nor a voice model is chosen";
    }
    ASSERT_EQ(sdk.load(name, makeFlatModel("0.0.2", rate, 32, bias += 1.0F)), 0);
  }
  const std::pair<int, std::string> expected[] = {
      {8000, "narrow8"}, {12000, "narrow8"}, {16000, "first16"}, {24000, "first16"},
      {32000, "wide32"}, {44100, "wide32"},  {96000, "wide32"}};
  for (const auto& [rate, chosen] : expected) {
    const auto output = [&, rate = rate](const char* name) {
      const size_t size = samplesPerFrame(rate, 10);
      return cleanStream(Orv_NC_CreateSession(rate, rate, 10, name), speechLike(rate, 0.2), size,
                         size);
    };
    const std::vector<int16_t> automatic = output(nullptr);
    for (const auto& [name, modelRate] : models)
      EXPECT_EQ(output(name) == automatic, name == chosen) << rate << ' ' << name;
  }
  EXPECT_NE(Orv_VAD_CreateSession(96000, 10, nullptr), nullptr);
}

TEST(Versions, WrongInformationIsReportedWithItsText) {
  const std::string noInfo = exceptionText("weights/weight", 221, "getWeightInfo",
                                           "there are no needing Weight information in Weight ");
  const std::string noVersion = exceptionText("weights/weight", 230, "getWeightVersion",
                                              "there are no Weight version in Weight ");
  const std::string unsupported =
      exceptionText("noise_canceller/noise_cleaner", 0, "create", "Unsupported weight version");
  const std::string noStep = exceptionText("weights/weight", 176, "getReference",
                                           "ERROR DATA With Key: Stepdoesn't exists");
  struct Row {
    const char* name;
    void (*change)(WeightBuilder&);
    std::string byName, automatic;
  };
  const Row rows[] = {
      {"NoVersion", [](WeightBuilder& w) { w.drop("Version"); }, noVersion, noVersion},
      {"VersionIsNumber", [](WeightBuilder& w) { w.integer("Version", 1); }, noVersion, noVersion},
      {"TrailingBlank", [](WeightBuilder& w) { w.text("Version", "0.0.1 "); }, unsupported,
       unsupported},
      {"Rate44100", [](WeightBuilder& w) { w.integer("SampleRate", 44100); }, noInfo, noInfo},
      {"Frame25ms", [](WeightBuilder& w) { w.integer("FrameLength", 400); }, "", noInfo},
      {"NoFrame", [](WeightBuilder& w) { w.integer("FrameLength", 0); }, "", noInfo},
      {"Negative", [](WeightBuilder& w) { w.integer("FrameLength", -512); }, "", noInfo},
      {"Largest", [](WeightBuilder& w) { w.integer("FrameLength", INT_MAX); }, "", noInfo},
      {"NoStep", [](WeightBuilder& w) { w.drop("Step"); }, noStep, noStep},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    Sdk sdk;
    WeightBuilder weights = makeModel({}).weights();
    row.change(weights);
    ASSERT_EQ(sdk.load("bad", weights.bytes()), 0) << "loading looks at no value";
    Capture capture;
    EXPECT_EQ(Orv_NC_CreateSession(16000, 16000, 10, "bad"), nullptr);
    const std::string byName = capture.err();
    EXPECT_EQ(Orv_NC_CreateSession(16000, 16000, 10, nullptr), nullptr);
    EXPECT_EQ(capture.err(), row.automatic);
    if (!row.byName.empty()) {
      EXPECT_EQ(byName, row.byName);
    }
    EXPECT_EQ(capture.out(), "");
  }
}

}  // namespace
}  // namespace orvel_test
