#include "sessions.h"

#include <algorithm>
#include <cstdint>
#include <new>

namespace orvel::python {
namespace {

const char* nameOrNull(const std::string& name) noexcept {
  return name.empty() ? nullptr : name.c_str();
}

std::size_t framesOf(const Session& session, std::size_t samples) {
  if (samples % session.frame() != 0) {
    throw std::invalid_argument("audio: " + std::to_string(samples) +
                                " samples are no whole number of frames of " +
                                std::to_string(session.frame()));
  }
  return samples / session.frame();
}

void requireRoom(std::size_t room, std::size_t expected) {
  if (room != expected)
    throw std::invalid_argument("output: room for " + std::to_string(room) + ", expected " +
                                std::to_string(expected));
}

}  // namespace

Context::Context(const std::string& library, const std::string& models, Handler handler)
    : functions_(loadFunctions(library)),
      handler_(std::move(handler)),
      handle_(functions_.Orv_Context_Create(models.c_str())) {
  if (handle_ == nullptr) throw std::bad_alloc();
  functions_.Orv_Context_SetMessageHandler(handle_, forward, this);
}

void Context::forward(void* context, int severity, const char* text) noexcept {
  try {
    static_cast<const Context*>(context)->handler_(severity, text);
  } catch (...) {  // there is a C function to return to
  }
}

void Context::refuse(const std::string& what) const {
  const std::string reason = functions_.Orv_Context_LastError(handle_);
  throw Refused(what.empty() ? reason : what + ": " + reason);
}

void Context::load(const std::string& control, const std::string& name) {
  if (functions_.Orv_Context_SetModel(handle_, control.c_str(), name.c_str()) != 0) refuse("");
}

void Context::loadBytes(const std::string& control, std::span<const char> weights,
                        const std::string& name) {
  const int status = functions_.Orv_Context_SetModelFromMemory(
      handle_, control.data(), control.size(), weights.data(), weights.size(), name.c_str());
  if (status != 0) refuse("");
}

OrvModelInfo Context::model(const std::string& name) const {
  OrvModelInfo info{};
  info.size = sizeof info;
  if (functions_.Orv_Context_GetModelInfo(handle_, name.c_str(), &info) != 0) refuse("");
  return info;
}

void Context::close() noexcept {
  if (handle_ != nullptr) functions_.Orv_Context_Destroy(std::exchange(handle_, nullptr));
}

Session::Session(std::shared_ptr<Context> context, void* handle, Close closing, int rate,
                 int frameMs)
    : context_(std::move(context)),
      handle_(handle),
      closing_(closing),
      frame_(static_cast<std::size_t>(rate) * static_cast<std::size_t>(frameMs) / 1000) {
  if (handle_ == nullptr) context_->refuse("");
}

// A context that is closed has ended its sessions.
Session::~Session() {
  if (handle_ != nullptr && context_->handle() != nullptr) closing_(handle_);
}

Session::Use::Use(Session& session) : session_(&session) {
  if (session.busy_.test_and_set(std::memory_order_acquire))
    throw std::runtime_error("the session is in use by another thread");
  if (session.handle_ == nullptr || session.context_->handle() == nullptr) {
    session.busy_.clear(std::memory_order_release);
    throw Refused("the session is closed");
  }
}

Session::Use::~Use() {
  if (session_ != nullptr) session_->busy_.clear(std::memory_order_release);
}

OrvSessionStatistics Session::statistics() {
  const Use use(*this);
  OrvSessionStatistics counts{};
  counts.size = sizeof counts;
  check(context_->functions().Orv_Session_GetStatistics(handle_, &counts), "statistics");
  return counts;
}

void Session::close() {
  if (handle_ == nullptr || context_->handle() == nullptr) return;
  const Use use(*this);
  closing_(std::exchange(handle_, nullptr));
}

Cleaner::Cleaner(std::shared_ptr<Context> context, int rate, int outputRate, int frameMs,
                 const std::string& model)
    : Session(context,
              context->functions().Orv_Context_CreateCleaner(context->handle(), rate, outputRate,
                                                             frameMs, nameOrNull(model)),
              context->functions().Orv_NC_CloseSession, rate, frameMs),
      outputFrame_(static_cast<std::size_t>(outputRate) * static_cast<std::size_t>(frameMs) / 1000),
      latency_(0) {
  std::uint32_t samples = 0;
  check(context->functions().Orv_NC_GetLatency(handle(), &samples), "latency");
  latency_ = samples;
}

void Cleaner::limit(float decibels) {
  const Use use(*this);
  check(context().functions().Orv_NC_SetAttenuationLimit(handle(), decibels),
        "limit " + std::to_string(decibels));
}

void Cleaner::reset() {
  const Use use(*this);
  check(context().functions().Orv_NC_ResetSession(handle()), "reset");
}

void clean(std::span<Cleaner* const> sessions, std::span<const std::span<const float>> inputs,
           std::span<const std::span<float>> outputs) {
  if (inputs.size() != sessions.size() || outputs.size() != sessions.size())
    throw std::invalid_argument("audio: as many arrays as sessions are expected");
  if (sessions.empty()) return;
  std::vector<Session::Use> uses;
  std::vector<std::size_t> frames;
  for (std::size_t i = 0; i < sessions.size(); ++i) {
    frames.push_back(framesOf(*sessions[i], inputs[i].size()));
    requireRoom(outputs[i].size(), frames[i] * sessions[i]->outputFrame());
    uses.emplace_back(*sessions[i]);
  }
  const Functions& functions = sessions[0]->context().functions();
  const std::size_t most = *std::max_element(frames.begin(), frames.end());
  std::vector<void*> handles;
  std::vector<const float*> sources;
  std::vector<float*> targets;
  std::vector<std::uint32_t> sourceCounts, targetCounts;
  std::vector<int> statuses(sessions.size());
  for (std::size_t frame = 0; frame < most; ++frame) {
    const auto clear = [](auto&... arrays) { (arrays.clear(), ...); };
    clear(handles, sources, targets, sourceCounts, targetCounts);
    for (std::size_t i = 0; i < sessions.size(); ++i) {
      if (frame >= frames[i]) continue;
      handles.push_back(sessions[i]->handle());
      sourceCounts.push_back(static_cast<std::uint32_t>(sessions[i]->frame()));
      targetCounts.push_back(static_cast<std::uint32_t>(sessions[i]->outputFrame()));
      sources.push_back(inputs[i].data() + frame * sourceCounts.back());
      targets.push_back(outputs[i].data() + frame * targetCounts.back());
    }
    const int status =
        handles.size() == 1
            ? functions.Orv_NC_CleanAmbientNoiseFloat(handles[0], sources[0], sourceCounts[0],
                                                      targets[0], targetCounts[0])
            : functions.Orv_NC_CleanBatchFloat(
                  static_cast<std::uint32_t>(handles.size()), handles.data(), sources.data(),
                  sourceCounts.data(), targets.data(), targetCounts.data(), statuses.data());
    if (status != 0) sessions[0]->context().refuse("frame " + std::to_string(frame));
  }
}

Detector::Detector(std::shared_ptr<Context> context, int rate, int frameMs,
                   const std::string& model)
    : Session(context,
              context->functions().Orv_Context_CreateDetector(context->handle(), rate, frameMs,
                                                              nameOrNull(model)),
              context->functions().Orv_VAD_CloseSession, rate, frameMs) {}

void Detector::process(std::span<const float> input, std::span<float> scores) {
  const std::size_t frames = framesOf(*this, input.size());
  requireRoom(scores.size(), frames);
  const Use use(*this);
  for (std::size_t i = 0; i < frames; ++i) {
    check(
        context().functions().Orv_VAD_ProcessFloat(handle(), input.data() + i * frame(),
                                                   static_cast<std::uint32_t>(frame()), &scores[i]),
        "frame " + std::to_string(i));
  }
}

void Detector::reset() {
  const Use use(*this);
  check(context().functions().Orv_VAD_ResetSession(handle()), "reset");
}

}  // namespace orvel::python
