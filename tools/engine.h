#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "tools/console.h"
#include "tools/model_catalog.h"
#include "tools/tuning_keys.h"

namespace ORVEL::TOOLS {

/** Every call into the library takes frames of this duration. */
inline constexpr int kFrameMs = 10;

/** An open session of the library; closes itself. */
class Session {
 public:
  Session() = default;
  Session(void* handle, int sampleRate, ModelKind kind) noexcept
      : handle_(handle), sampleRate_(sampleRate), kind_(kind) {}
  Session(Session&& other) noexcept;
  Session& operator=(Session&& other) noexcept;
  ~Session();

  void* handle() const noexcept { return handle_; }
  /** Rate of the frames it takes (and, cleaning noise, gives), Hz. */
  int sampleRate() const noexcept { return sampleRate_; }
  std::size_t frameSize() const noexcept {
    return static_cast<std::size_t>(sampleRate_) * kFrameMs / 1000;
  }

 private:
  void* handle_ = nullptr;
  int sampleRate_ = 0;
  ModelKind kind_ = ModelKind::noise;
};

/**
 * The library with its models loaded. One at a time; sessions must be gone before it is. Opening
 * sessions is safe from several threads.
 */
class Engine {
 public:
  /**
   * Initialises the library and loads the models with the settings put over their control files.
   * @throws ToolError (model) with the library's own words when no model could be loaded.
   */
  Engine(const ModelSet& models, const std::vector<Setting>& settings, Console& console);
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;
  ~Engine();

  /**
   * Opens one session for each channel of audio of the given rate (any rate).
   *
   * The sessions' own rate is the audio's where the library takes it, else the next of 8, 16, 32, 48
   * and 96 kHz; higher when no loaded model works that low. The caller converts.
   *
   * @throws ToolError (model) with the library's own words.
   */
  std::vector<Session> openNoiseSessions(int audioRate, int channels);

  /** One voice-activity session at the lowest rate the model takes. @throws ToolError (model) */
  Session openVoiceSession();

 private:
  void load(const ModelSet& models, const std::vector<Setting>& settings);
  Session tryOpen(ModelKind kind, const std::vector<int>& rates);
  void show(const std::string& printed);

  Console& console_;
  std::mutex mutex_;                 // guards shown_
  std::optional<std::string> name_;  // nothing: the library chooses
  std::string shown_;                // texts that the user has seen already
};

/** Session rates for audio of a rate, best first. */
std::vector<int> candidateRates(int audioRate);

}  // namespace ORVEL::TOOLS
