#include "orv-sdk/context.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>
#include <utility>

#include "utils/native_path.h"
#include "utils/orvel_exception.h"

namespace ORVEL {

namespace {

using WEIGHTS::ModelError;

template <class Values>
void requireOneOf(const Values& values, int value, const std::string& what) {
  if (std::find(values.begin(), values.end(), value) != values.end()) {
    return;
  }
  std::string list;
  for (const int known : values) {
    list += (list.empty() ? "" : ", ") + std::to_string(known);
  }
  throw ModelError(what + " " + std::to_string(value) + " is not one of " + list);
}

SessionKind kindOf(const WEIGHTS::Weight& weight) {
  return WEIGHTS::isVoiceActivityVersion(WEIGHTS::getWeightVersion(weight))
             ? SessionKind::kVoiceActivity
             : SessionKind::kNoiseCleaning;
}

const char* nameOf(SessionKind kind) {
  return kind == SessionKind::kVoiceActivity ? "voice activity" : "noise cleaning";
}

/** Takes what a trial of a model has to say: its sessions will say it again. */
class Unheard final : public UTILS::Diagnostics {
 protected:
  void onNote(std::string_view /*text*/) override {}
  void onWarning(std::string_view /*text*/) override {}
  void onError(std::string_view /*text*/) override {}
};

/** Builds a cleaner to see whether the weights fit together; what it packs is kept for the sessions. */
OrvModelInfo tryModel(const WEIGHTS::Model& model) {
  Unheard unheard;
  const auto trial = std::make_shared<WEIGHTS::Model>(unheard);
  trial->weight = model.weight;
  trial->keys = model.keys;
  WEIGHTS::ModelStore store("", unheard);
  store.add("trial", trial);
  constexpr int kFrameMs = 10;
  const WEIGHTS::WeightInfo info = WEIGHTS::getWeightInfo(*model.weight);
  const SessionKind kind = kindOf(*model.weight);
  const auto rate = static_cast<std::uint32_t>(info.sampleRate);
  const auto cleaner = NOISE_CANCELLER::create(store, rate, kFrameMs, "trial", kind);

  OrvModelInfo result{};
  result.size = sizeof result;
  result.kind =
      kind == SessionKind::kVoiceActivity ? ORV_MODEL_VOICE_ACTIVITY : ORV_MODEL_NOISE_CLEANING;
  const std::string version = WEIGHTS::getWeightVersion(*model.weight);
  version.copy(result.version, sizeof result.version - 1);
  result.sampleRate = rate;
  result.frameLength =
      static_cast<std::uint32_t>(model.weight->values().getReference<int>("FrameLength"));
  // A detector gives a score for each frame of 10 ms.
  result.hop = kind == SessionKind::kVoiceActivity
                   ? rate * kFrameMs / 1000
                   : static_cast<std::uint32_t>(model.weight->values().getReference<int>("Step"));
  result.latency = static_cast<std::uint32_t>(cleaner->delay());
  result.weights = WEIGHTS::countNetworkWeights(*model.weight);
  return result;
}

// Handles are numbers that no pointer of 64 bits can be: bits 47 to 63 of an address are equal.
constexpr std::uintptr_t kHandleMark = std::uintptr_t{0x4F52} << (8 * sizeof(std::uintptr_t) - 16);

/** The contexts that exist. */
struct Contexts {
  std::mutex mutex;
  ContextId last = kGlobalInstance;
  std::map<ContextId, std::shared_ptr<Context>> byId;

  // Never destroyed: a host may still call while the process ends.
  static Contexts& get() {
    static auto& contexts = *new Contexts;
    return contexts;
  }
};

ContextId idOf(const void* handle) {
  const auto number = reinterpret_cast<std::uintptr_t>(handle);
  const std::uintptr_t id = number ^ kHandleMark;
  return id <= UINT32_MAX ? static_cast<ContextId>(id) : kGlobalInstance;
}

}  // namespace

void MessageHandler::set(OrvMessageHandler handler, void* user) {
  const std::lock_guard lock(mutex_);
  handler_ = handler;
  user_ = user;
}

void MessageHandler::send(OrvSeverity severity, std::string_view text) {
  const std::lock_guard lock(mutex_);
  if (handler_ == nullptr) {
    return;
  }
  std::string line(text.substr(0, text.find_last_not_of(" \n") + 1));
  std::replace(line.begin(), line.end(), '\n', ' ');
  handler_(user_, severity, line.c_str());
}

Context::Context(ContextId id, const char* directory)
    : directory_(UTILS::nativePath(directory == nullptr ? "" : directory)),
      instance_(id, "", messages_) {}

void Context::refuseKnownName(const std::string& name) {
  if (instance_.models().find(name) != nullptr) {
    throw ModelError("the model name '" + name + "' is in use");
  }
}

void Context::add(const std::string& name, const WEIGHTS::ModelFiles& files) {
  OrvModelInfo info{};
  try {
    info = tryModel(*files.model);
  } catch (const UTILS::ORVEL_Exception& error) {
    const auto version = files.model->weight->values().get<std::string>("Version");
    throw ModelError(files.weightLabel +
                     (version ? " (version " + version->substr(0, 15) + ")" : "") + ": " +
                     error.message());
  }
  std::map<std::string, OrvModelInfo> infoOfModel{{name, info}};
  const std::lock_guard lock(mutex_);
  refuseKnownName(name);
  instance_.models().add(name, files.model);
  infos_.merge(infoOfModel);
}

void Context::loadFile(const char* controlFile, const char* modelName) {
  if (controlFile == nullptr || *controlFile == '\0') {
    throw ModelError("no control file is given");
  }
  const std::string native = UTILS::nativePath(controlFile);
  const std::string name =
      modelName == nullptr || *modelName == '\0' ? UTILS::stemOf(native) : modelName;
  {
    const std::lock_guard lock(mutex_);
    refuseKnownName(name);
  }
  add(name, WEIGHTS::readModelFiles(UTILS::pathIn(directory_, native), directory_, messages_));
}

void Context::loadContent(std::string_view control, std::string_view weights,
                          const char* modelName) {
  if (modelName == nullptr || *modelName == '\0') {
    throw ModelError("no model name is given");
  }
  {
    const std::lock_guard lock(mutex_);
    refuseKnownName(modelName);
  }
  add(modelName, WEIGHTS::readModelContent(control, weights, messages_));
}

void Context::requireModel(const OrvSessionT::Request& request) const {
  if (request.modelName != nullptr) {
    const auto known = infos_.find(request.modelName);
    if (known == infos_.end()) {
      throw ModelError("no model is loaded under the name '" + std::string(request.modelName) +
                       "'");
    }
    const auto kind = static_cast<SessionKind>(known->second.kind);
    if (kind != request.kind) {
      throw ModelError("the model '" + known->first + "' is for " + nameOf(kind) + ", not for " +
                       nameOf(request.kind));
    }
    return;
  }
  const bool fits = std::any_of(infos_.begin(), infos_.end(), [&](const auto& entry) {
    return static_cast<SessionKind>(entry.second.kind) == request.kind &&
           entry.second.sampleRate <= static_cast<std::uint32_t>(request.inputRate);
  });
  if (!fits) {
    throw ModelError(std::string("no model for ") + nameOf(request.kind) + " at " +
                     std::to_string(request.inputRate) + " Hz or below is loaded");
  }
}

void* Context::openSession(const OrvSessionT::Request& request) {
  requireOneOf(kSampleRates, request.inputRate, "the sample rate");
  requireOneOf(kSampleRates, request.outputRate, "the output's sample rate");
  requireOneOf(kFrameDurations, request.frameDurationMs, "the frame's duration in milliseconds");
  const std::lock_guard lock(mutex_);
  requireModel(request);
  return instance_.openSession(request);
}

OrvModelInfo Context::modelInfo(const char* modelName) {
  const std::lock_guard lock(mutex_);
  const auto known = infos_.find(modelName == nullptr ? "" : modelName);
  if (known == infos_.end()) {
    throw ModelError("no model is loaded under the name '" +
                     std::string(modelName == nullptr ? "" : modelName) + "'");
  }
  return known->second;
}

void* createContext(const char* directory) {
  Contexts& contexts = Contexts::get();
  const std::lock_guard lock(contexts.mutex);
  if (contexts.last == UINT32_MAX) {
    throw std::bad_alloc();
  }
  const ContextId id = ++contexts.last;
  contexts.byId.emplace(id, std::make_shared<Context>(id, directory));
  return reinterpret_cast<void*>(kHandleMark ^ id);
}

std::shared_ptr<Context> findContext(ContextId id) {
  Contexts& contexts = Contexts::get();
  const std::lock_guard lock(contexts.mutex);
  const auto known = contexts.byId.find(id);
  return known == contexts.byId.end() ? nullptr : known->second;
}

std::shared_ptr<Context> findContext(const void* handle) { return findContext(idOf(handle)); }

bool destroyContext(const void* handle) {
  std::shared_ptr<Context> context;
  {
    Contexts& contexts = Contexts::get();
    const std::lock_guard lock(contexts.mutex);
    const auto known = contexts.byId.find(idOf(handle));
    if (known == contexts.byId.end()) {
      return false;
    }
    context = std::move(known->second);
    contexts.byId.erase(known);
  }
  // Not left to the last user of the context: from here on its handles are refused.
  SessionTable::get().removeAll(context->id());
  return true;
}

}  // namespace ORVEL
