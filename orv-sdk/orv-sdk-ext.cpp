#include "orvel/orv_sdk_ext.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>

#include "orv-sdk/batch.h"
#include "orv-sdk/context.h"
#include "orv-sdk/exports.h"

namespace ORVEL {

namespace {

/**
 * Fills a structure that begins with its own size, set by the caller, as far as that goes. False when it is
 * null or shorter than `least`, which every version has; nothing is asked of `values` then.
 */
template <class Struct, class Values>
bool give(Struct* to, size_t least, Values&& values) {
  if (to == nullptr || to->size < least) {
    return false;
  }
  Struct whole = values();
  whole.size = to->size;
  std::memcpy(to, &whole, std::min<size_t>(whole.size, sizeof whole));
  return true;
}

template <class Sample>
int scoreFrame(void* session, const Sample* input, uint32_t inputCount, float* score,
               const char* mismatch) noexcept {
  return withSession(session, SessionKind::kVoiceActivity, [&](const OpenSession& open) -> int {
    return statusOf(open.session->score(input, inputCount, score), open, Refusal::kDetectorFrame,
                    mismatch);
  });
}

int resetSession(void* session, SessionKind kind) noexcept {
  return withSession(session, kind, [](const OpenSession& open) -> int {
    open.session->reset();
    return kSuccess;
  });
}

void fail(ContextId id, Context* context, const char* reason) noexcept {
  rememberFailure(id, reason);
  if (context == nullptr) {
    return;
  }
  try {
    context->messages().send(ORV_SEVERITY_ERROR, reason);
  } catch (...) {  // NOLINT(bugprone-empty-catch): the reason is kept, the status tells the rest
  }
}

/**
 * Runs the body with the context of the handle. Whatever fails has its reason kept and sent; models and
 * sessions that are refused give 2.
 */
template <class Body>
int withContext(void* handle, Body&& body) noexcept {
  const UTILS::CallScope scope;
  std::shared_ptr<Context> context;
  const auto report = [&](const char* /*text*/, const char* message) noexcept {
    fail(context == nullptr ? kGlobalInstance : context->id(), context.get(), message);
  };
  const auto statusOf = [](Status status) -> int {
    return status == kLibraryError ? kNotLoaded : status;
  };
  const auto run = [&]() -> int {
    context = findContext(handle);
    if (context == nullptr) {
      report("", "the handle is not that of a context");
      return kNotLoaded;
    }
    try {
      return body(*context);
    } catch (const WEIGHTS::ModelError& error) {
      report("", error.what());
      return kNotLoaded;
    }
  };
  return guarded<int>(run, report, statusOf);
}

void* openSession(void* context, const OrvSessionT::Request& request) noexcept {
  void* session = nullptr;
  withContext(context, [&](Context& known) -> int {
    session = known.openSession(request);
    return kSuccess;
  });
  return session;
}

}  // namespace

}  // namespace ORVEL

using namespace ORVEL;

int Orv_VAD_ProcessInt16(void* session, const int16_t* input, uint32_t inputCount, float* score) {
  return scoreFrame(session, input, inputCount, score, kInt16Mismatch);
}

int Orv_VAD_ProcessFloat(void* session, const float* input, uint32_t inputCount, float* score) {
  return scoreFrame(session, input, inputCount, score, kFloatMismatch);
}

int Orv_NC_CleanBatchInt16(uint32_t count, void* const* sessions, const int16_t* const* inputs,
                           const uint32_t* inputCounts, int16_t* const* outputs,
                           const uint32_t* outputCounts, int* statuses) {
  return cleanBatch<int16_t>(
      {count, sessions, inputs, inputCounts, outputs, outputCounts, statuses}, kInt16Mismatch);
}

int Orv_NC_CleanBatchFloat(uint32_t count, void* const* sessions, const float* const* inputs,
                           const uint32_t* inputCounts, float* const* outputs,
                           const uint32_t* outputCounts, int* statuses) {
  return cleanBatch<float>({count, sessions, inputs, inputCounts, outputs, outputCounts, statuses},
                           kFloatMismatch);
}

int Orv_NC_GetLatency(void* session, uint32_t* outputSamples) {
  return withSession(session, SessionKind::kNoiseCleaning, [&](const OpenSession& open) -> int {
    if (outputSamples == nullptr) {
      rememberRefusal(open.context, Refusal::kNullResult);
      return kRejected;
    }
    *outputSamples = open.session->latency();
    return kSuccess;
  });
}

int Orv_NC_SetAttenuationLimit(void* session, float decibels) {
  return withSession(session, SessionKind::kNoiseCleaning, [&](const OpenSession& open) -> int {
    if (!std::isfinite(decibels) || decibels < 0.0F) {
      rememberRefusal(open.context, Refusal::kLimit);
      return kRejected;
    }
    open.session->setGainFloor(std::pow(10.0F, -decibels / 20.0F));
    return kSuccess;
  });
}

int Orv_NC_ResetSession(void* session) {
  return resetSession(session, SessionKind::kNoiseCleaning);
}

int Orv_VAD_ResetSession(void* session) {
  return resetSession(session, SessionKind::kVoiceActivity);
}

int Orv_Session_GetStatistics(void* session, OrvSessionStatistics* statistics) {
  return withSession(session, kAnyKind, [&](const OpenSession& open) -> int {
    const auto counted = [&] {
      const auto counts = open.session->counts();
      return OrvSessionStatistics{0, 0, counts.calls, counts.failures, counts.resets};
    };
    if (!give(statistics, offsetof(OrvSessionStatistics, failedFrames), counted)) {
      rememberRefusal(open.context, Refusal::kNullResult);
      return kRejected;
    }
    return kSuccess;
  });
}

const char* Orv_SDK_GetVersion() { return ORV_VERSION_STRING; }

void* Orv_Context_Create(const char* modelDirectory) {
  const UTILS::CallScope scope;
  void* context = nullptr;
  guarded<int>(
      [&]() -> int {
        context = createContext(modelDirectory);
        return kSuccess;
      },
      [](const char* /*text*/, const char* message) noexcept {
        rememberFailure(kGlobalInstance, message);
      },
      [](Status status) -> int { return status; });
  return context;
}

int Orv_Context_Destroy(void* context) {
  return withContext(context, [&](Context& known) -> int {
    if (!destroyContext(context)) {
      return kNotLoaded;
    }
    forgetFailure(known.id());
    return kSuccess;
  });
}

int Orv_Context_SetModel(void* context, const char* controlFileName, const char* modelName) {
  return withContext(context, [&](Context& known) -> int {
    known.loadFile(controlFileName, modelName);
    return kSuccess;
  });
}

int Orv_Context_SetModelFromMemory(void* context, const char* controlText, size_t controlSize,
                                   const void* weights, size_t weightsSize, const char* modelName) {
  return withContext(context, [&](Context& known) -> int {
    const std::string_view control(controlText, controlText == nullptr ? 0 : controlSize);
    const auto* bytes = static_cast<const char*>(weights);
    known.loadContent(control, {bytes, bytes == nullptr ? 0 : weightsSize}, modelName);
    return kSuccess;
  });
}

void* Orv_Context_CreateCleaner(void* context, int inputSampleRate, int outputSampleRate,
                                int frameDurationMs, const char* modelName) {
  return openSession(context, {.inputRate = inputSampleRate,
                               .outputRate = outputSampleRate,
                               .frameDurationMs = frameDurationMs,
                               .modelName = modelName,
                               .kind = SessionKind::kNoiseCleaning});
}

void* Orv_Context_CreateDetector(void* context, int sampleRate, int frameDurationMs,
                                 const char* modelName) {
  return openSession(context, {.inputRate = sampleRate,
                               .outputRate = OrvSessionT::kDetectorOutputRate,
                               .frameDurationMs = frameDurationMs,
                               .modelName = modelName,
                               .kind = SessionKind::kVoiceActivity});
}

int Orv_Context_SetMessageHandler(void* context, OrvMessageHandler handler, void* user) {
  return withContext(context, [&](Context& known) -> int {
    known.messages().set(handler, user);
    return kSuccess;
  });
}

const char* Orv_Context_LastError(void* context) {
  const UTILS::CallScope scope;
  const char* reason = "";
  guarded<int>(
      [&]() -> int {
        const auto known = findContext(context);
        reason = lastFailure(known == nullptr ? kGlobalInstance : known->id());
        return kSuccess;
      },
      [](const char* /*text*/, const char* /*message*/) noexcept {},
      [](Status status) -> int { return status; });
  return reason;
}

int Orv_Context_GetModelInfo(void* context, const char* modelName, OrvModelInfo* info) {
  return withContext(context, [&](Context& known) -> int {
    const auto properties = [&] { return known.modelInfo(modelName); };
    if (!give(info, offsetof(OrvModelInfo, sampleRate), properties)) {
      fail(known.id(), &known, "the structure for the model's properties is null or too small");
      return kRejected;
    }
    return kSuccess;
  });
}
