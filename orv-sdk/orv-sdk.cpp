#include "orvel/orv_sdk.h"

#include <algorithm>

#include "orv-sdk/exports.h"
#include "orv-sdk/instance.h"

namespace ORVEL {

namespace {

bool isSupportedRate(int rate) {
  return std::find(kSampleRates.begin(), kSampleRates.end(), rate) != kSampleRates.end();
}

void* createSession(const OrvSessionT::Request& request) noexcept {
  void* handle = nullptr;
  guardedStatus([&]() -> int {
    if (!isSupportedRate(request.inputRate) || !isSupportedRate(request.outputRate)) {
      UTILS::standardStreams().error("Unsupported Sampling rates!");
      return kRejected;
    }
    InstanceT* instance = Instance(InstanceAccess::kGet);
    const std::lock_guard lock(instanceMutex());
    handle = instance->openSession(request);
    return kSuccess;
  });
  return handle;
}

template <class Sample>
int cleanFrame(void* session, const Sample* input, uint32_t inputCount, Sample* output,
               uint32_t outputCount, const char* mismatch) noexcept {
  return withSession(session, SessionKind::kNoiseCleaning, [&](const OpenSession& open) -> int {
    return statusOf(open.session->process(input, inputCount, output, outputCount), open,
                    Refusal::kFrame, mismatch);
  });
}

}  // namespace

}  // namespace ORVEL

using namespace ORVEL;

int Orv_SDK_GlobalInit(const char* modelDirectory) {
  return guardedStatus([&]() -> int {
    Instance(InstanceAccess::kCreate, modelDirectory);
    return kSuccess;
  });
}

int Orv_SDK_GlobalDestroy() {
  return guardedStatus([]() -> int {
    Instance(InstanceAccess::kDestroy);
    return kSuccess;
  });
}

int Orv_SDK_SetModel(const char* controlFileName, const char* modelName) {
  return guardedStatus([&]() -> int {
    if (controlFileName == nullptr) {
      UTILS::standardStreams().warnLine("WARRNING Orv_SetWeight FUNCTION CALL with nullptr");
      return kNotLoaded;
    }
    InstanceT* instance = Instance(InstanceAccess::kGet);
    const char* const name = modelName == nullptr ? "" : modelName;
    return instance->models().load(controlFileName, name, instanceMutex()) ? kSuccess : kNotLoaded;
  });
}

void* Orv_NC_CreateSession(int inputSampleRate, int outputSampleRate, int frameDurationMs,
                           const char* modelName) {
  return createSession({.inputRate = inputSampleRate,
                        .outputRate = outputSampleRate,
                        .frameDurationMs = frameDurationMs,
                        .modelName = modelName,
                        .kind = SessionKind::kNoiseCleaning});
}

void* Orv_VAD_CreateSession(int sampleRate, int frameDurationMs, const char* modelName) {
  return createSession({.inputRate = sampleRate,
                        .outputRate = OrvSessionT::kDetectorOutputRate,
                        .frameDurationMs = frameDurationMs,
                        .modelName = modelName,
                        .kind = SessionKind::kVoiceActivity});
}

int Orv_NC_CloseSession(void* session) {
  return closeSession(session, SessionKind::kNoiseCleaning);
}

int Orv_VAD_CloseSession(void* session) {
  return closeSession(session, SessionKind::kVoiceActivity);
}

int Orv_NC_CleanAmbientNoiseInt16(void* session, const int16_t* input, uint32_t inputCount,
                                  int16_t* output, uint32_t outputCount) {
  return cleanFrame(session, input, inputCount, output, outputCount, kInt16Mismatch);
}

int Orv_NC_CleanAmbientNoiseFloat(void* session, const float* input, uint32_t inputCount,
                                  float* output, uint32_t outputCount) {
  return cleanFrame(session, input, inputCount, output, outputCount, kFloatMismatch);
}
