#include "tools/engine.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <utility>

#include "orvel/orv_sdk.h"
#include "orvel/orv_sdk_ext.h"
#include "tools/control_override.h"
#include "tools/standard_output.h"
#include "tools/tool_error.h"

namespace ORVEL::TOOLS {
namespace {

namespace fs = std::filesystem;

constexpr std::array kLibraryRates = {8000, 12000, 16000, 24000, 32000, 44100, 48000, 88200, 96000};
// Multiples of the models' own rates: conversion inside the library is simplest from these.
constexpr std::array kConvertedRates = {8000, 16000, 32000, 48000, 96000};

std::string trimmed(std::string text) {
  while (!text.empty() && text.back() == '\n')
    text.pop_back();
  return text;
}

std::string orElse(const std::string& text, const std::string& fallback) {
  return text.empty() ? fallback : text;
}

// A model named outright is not checked for its kind by the library, only by what is done with the
// session. One of the wrong kind is closed.
bool isOfKind(void* session, ModelKind kind) {
  std::uint32_t latency = 0;
  const bool noise = Orv_NC_GetLatency(session, &latency) == 0;
  if (noise == (kind == ModelKind::noise)) return true;
  if (noise) {
    Orv_NC_CloseSession(session);
  } else {
    Orv_VAD_CloseSession(session);
  }
  return false;
}

}  // namespace

std::vector<int> candidateRates(int audioRate) {
  std::vector<int> rates;
  const bool direct =
      std::find(kLibraryRates.begin(), kLibraryRates.end(), audioRate) != kLibraryRates.end();
  if (direct) rates.push_back(audioRate);
  for (int rate : kConvertedRates) {
    if (rate > audioRate || (rate == kConvertedRates.back() && rates.empty()))
      rates.push_back(rate);
  }
  return rates;
}

Session::Session(Session&& other) noexcept
    : handle_(std::exchange(other.handle_, nullptr)),
      sampleRate_(other.sampleRate_),
      kind_(other.kind_) {}

Session& Session::operator=(Session&& other) noexcept {
  std::swap(handle_, other.handle_);
  std::swap(sampleRate_, other.sampleRate_);
  std::swap(kind_, other.kind_);
  return *this;
}

Session::~Session() {
  if (handle_ == nullptr) return;
  if (kind_ == ModelKind::noise) {
    Orv_NC_CloseSession(handle_);
  } else {
    Orv_VAD_CloseSession(handle_);
  }
}

Engine::Engine(const ModelSet& models, const std::vector<Setting>& settings, Console& console)
    : console_(console) {
  // Canonical, so that a path from there to the settings' copy of a control file holds.
  std::error_code error;
  ModelSet resolved = models;
  resolved.directory = fs::canonical(models.directory, error);
  if (error) {
    throw ToolError(ExitCode::model, models.directory.string() + ": " + error.message());
  }
  int status = 0;
  const std::string printed =
      console_.capture([&] { status = Orv_SDK_GlobalInit(resolved.directory.c_str()); });
  if (status != 0) {
    throw ToolError(ExitCode::internal, "the library does not start: " + trimmed(printed));
  }
  try {
    load(resolved, settings);
  } catch (...) {
    console_.capture([] { Orv_SDK_GlobalDestroy(); });
    throw;
  }
}

Engine::~Engine() { Orv_SDK_GlobalDestroy(); }

void Engine::load(const ModelSet& models, const std::vector<Setting>& settings) {
  std::unique_ptr<PrivateDirectory> copies;
  if (!settings.empty()) copies = std::make_unique<PrivateDirectory>();
  for (const auto& [key, value] : settings) {
    if (!isKnownTuningKey(key)) {
      console_.warning("--set " + key + ": no cleaner reads this key; 'orvel keys' lists them");
    }
  }
  std::size_t loaded = 0;
  std::string reasons;
  for (const std::string& file : models.controlFiles) {
    std::string path = file;
    if (copies) {
      const fs::path copy = copies->path() / file;
      writeOverridden(models.directory / file, settings, copy);
      path = fs::relative(fs::canonical(copy), models.directory).string();
    }
    const std::string name = fs::path(file).stem().string();
    int status = 0;
    const std::string printed =
        console_.capture([&] { status = Orv_SDK_SetModel(path.c_str(), name.c_str()); });
    if (status == 0) {
      ++loaded;
      console_.detail("loaded " + (models.directory / file).string());
      show(printed);
    } else {
      const std::string reason = (models.directory / file).string() + ": model not loaded: " +
                                 orElse(trimmed(withoutEcho(printed)),
                                        "not a control file (KEY VALUE per line, each key once)");
      if (models.automatic) console_.warning(reason);
      reasons += (reasons.empty() ? "" : "\n") + reason;
    }
    if (!models.automatic) name_ = name;
  }
  if (loaded == 0) {
    throw ToolError(ExitCode::model, models.automatic ? "no model could be loaded from '" +
                                                            models.directory.string() + "'"
                                                      : reasons);
  }
}

Session Engine::tryOpen(ModelKind kind, const std::vector<int>& rates) {
  const char* name = name_ ? name_->c_str() : nullptr;
  std::string firstReason;
  for (int rate : rates) {
    void* handle = nullptr;
    bool fits = true;
    const std::string printed = console_.capture([&] {
      handle = kind == ModelKind::noise ? Orv_NC_CreateSession(rate, rate, kFrameMs, name)
                                        : Orv_VAD_CreateSession(rate, kFrameMs, name);
    });
    // The library remarks on the question itself, which is nobody's concern.
    console_.capture([&] { fits = handle == nullptr || isOfKind(handle, kind); });
    if (!fits) {
      throw ToolError(ExitCode::model,
                      "model '" + name_.value_or("") + "' is for " +
                          (kind == ModelKind::noise ? "voice activity, not for cleaning"
                                                    : "cleaning, not for voice activity"));
    }
    if (handle != nullptr) {
      show(printed);
      return {handle, rate, kind};
    }
    if (firstReason.empty()) firstReason = trimmed(withoutEcho(printed));
  }
  const std::string what = kind == ModelKind::noise ? "noise-cleaning" : "voice-activity";
  throw ToolError(ExitCode::model, "cannot open a " + what + " session" +
                                       (name_ ? " with model '" + *name_ + "'" : "") + ": " +
                                       orElse(firstReason, "no reason given"));
}

std::vector<Session> Engine::openNoiseSessions(int audioRate, int channels) {
  const std::lock_guard lock(mutex_);
  std::vector<Session> sessions;
  sessions.reserve(static_cast<std::size_t>(channels));
  std::vector<int> rates = candidateRates(audioRate);
  // A named model works at every rate of the library: no reason to look further.
  if (name_) rates.resize(1);
  for (int channel = 0; channel < channels; ++channel) {
    sessions.push_back(tryOpen(ModelKind::noise, rates));
    rates = {sessions.front().sampleRate()};
  }
  return sessions;
}

Session Engine::openVoiceSession() {
  const std::lock_guard lock(mutex_);
  return tryOpen(ModelKind::voiceActivity, {8000, 16000, 32000});
}

void Engine::show(const std::string& printed) {
  const std::string text = console_.verbose() ? printed : withoutEcho(printed);
  if (text.empty() || shown_.find(text) != std::string::npos) return;
  shown_ += text;
  console_.text(text);
}

}  // namespace ORVEL::TOOLS
