#include "orvel/orv_sdk.h"

#include <algorithm>
#include <array>

#include "orv-sdk/session_access.h"

namespace ORVEL {

namespace {

bool isSupportedRate(int rate) {
  constexpr std::array kRates{8000, 12000, 16000, 24000, 32000, 44100, 48000, 88200, 96000};
  return std::find(kRates.begin(), kRates.end(), rate) != kRates.end();
}

void* createSession(const OrvSessionT::Request& request) noexcept {
  return guardedHandle([&]() -> void* {
    if (!isSupportedRate(request.inputRate) || !isSupportedRate(request.outputRate)) {
      UTILS::printErrorLine("Unsupported Sampling rates!");
      return nullptr;
    }
    InstanceT* instance = Instance(InstanceAccess::kGet);
    const std::lock_guard lock(InstanceT::mutex());
    return instance->addSession(request);
  });
}

int closeSession(void* handle, SessionKind expected) noexcept {
  return guardedStatus([&]() -> int {
    InstanceT* instance = Instance(InstanceAccess::kGet);
    if (InstanceT::findKind(handle) != expected) {
      throw UTILS::ORVEL_Exception(
          "Trying to close a non-existant session or session of incompatible type",
          "orv-sdk/orv-sdk", 37, "closeSession");
    }
    return instance->removeSession(handle) ? kSuccess : kRejected;
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
      UTILS::printLine("WARRNING Orv_SetWeight FUNCTION CALL with nullptr");
      return kNotLoaded;
    }
    InstanceT* instance = Instance(InstanceAccess::kGet);
    const std::lock_guard lock(InstanceT::mutex());
    return instance->loadModel(controlFileName, modelName) ? kSuccess : kNotLoaded;
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
  constexpr int kOutputRate = 16000;
  return createSession({.inputRate = sampleRate,
                        .outputRate = kOutputRate,
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
  return withSession(session, SessionKind::kNoiseCleaning, [&](OrvSessionT& open) -> int {
    return open.processInt16(input, inputCount, output, outputCount) ? kSuccess : kRejected;
  });
}

int Orv_NC_CleanAmbientNoiseFloat(void* session, const float* input, uint32_t inputCount,
                                  float* output, uint32_t outputCount) {
  return withSession(session, SessionKind::kNoiseCleaning, [&](OrvSessionT& open) -> int {
    return open.processFloat(input, inputCount, output, outputCount) ? kSuccess : kRejected;
  });
}
