/* Models and messages of ORVEL for C++20; include orvel/orvel.hpp. */
#ifndef ORVEL_ORVEL_LIBRARY_HPP
#define ORVEL_ORVEL_LIBRARY_HPP

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <new>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "orvel/orv_sdk.h"
#include "orvel/orv_sdk_ext.h"

namespace orvel {

/** Why a call failed: what() is the library's reason or names the argument that does not fit. */
class Error : public std::runtime_error {
 public:
  Error(int status, const std::string& reason) : std::runtime_error(reason), status_(status) {}
  /** Status of the C function as in orv_sdk.h; 1 for an argument that this header refuses. */
  int status() const noexcept { return status_; }

 private:
  int status_;
};

/** How grave a message is. */
enum class Severity {
  info = ORV_SEVERITY_INFO,
  warning = ORV_SEVERITY_WARNING,
  error = ORV_SEVERITY_ERROR
};

/**
 * Receives a library's messages, without line ends. Called by the thread whose call causes the message,
 * also by several at once; never while audio is processed. It must not use the same library. What it
 * throws is ignored.
 */
using MessageHandler = std::function<void(Severity, std::string_view)>;

enum class ModelKind {
  noiseCleaning = ORV_MODEL_NOISE_CLEANING,
  voiceActivity = ORV_MODEL_VOICE_ACTIVITY
};

/** A loaded model. */
struct Model {
  std::string name;  ///< for the `model` of the options below
  ModelKind kind = ModelKind::noiseCleaning;
  std::string version;          ///< of the algorithm, as "0.0.5"
  int sampleRate = 0;           ///< the model's own rate, Hz
  std::size_t frameLength = 0;  ///< samples of one analysis frame at that rate
  std::size_t hop = 0;          ///< samples by which it advances
  std::size_t latency = 0;      ///< samples, of sessions with frames of 10 ms at that rate
  std::uint64_t weights = 0;    ///< numbers that the network multiplies or adds
};

namespace detail {

/** A context of the library, shared by a Library and everything that was opened with it. */
class Context {
 public:
  Context(const std::string& modelDirectory, MessageHandler handler)
      : handler_(std::move(handler)), handle_(Orv_Context_Create(modelDirectory.c_str())) {
    if (handle_ == nullptr) throw std::bad_alloc();
    if (handler_) Orv_Context_SetMessageHandler(handle_, forward, &handler_);
  }
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;
  ~Context() { Orv_Context_Destroy(handle_); }

  void* handle() const noexcept { return handle_; }

  [[noreturn]] void fail(int status, const char* call) const {
    const char* reason = Orv_Context_LastError(handle_);
    throw Error(status, reason != nullptr && *reason != '\0'
                            ? std::string(reason)
                            : std::string(call) + " failed with status " + std::to_string(status));
  }
  void check(int status, const char* call) const {
    if (status != 0) fail(status, call);
  }

 private:
  static void forward(void* handler, int severity, const char* text) noexcept {
    try {
      (*static_cast<const MessageHandler*>(handler))(static_cast<Severity>(severity), text);
    } catch (...) {  // there is a C function to return to
    }
  }

  MessageHandler handler_;
  void* handle_;
};

}  // namespace detail

/** Models, by their names. Any number in a process, each with models of its own. */
class Library {
 public:
  /**
   * @param modelDirectory folder that relative paths start from; empty for the current directory.
   * @param handler receives messages for as long as the library or anything opened with it lives; a
   *        library without one prints nothing either.
   */
  explicit Library(const std::string& modelDirectory = {}, MessageHandler handler = {})
      : context_(std::make_shared<detail::Context>(modelDirectory, std::move(handler))) {}
  Library(Library&&) noexcept = default;
  Library& operator=(Library&&) noexcept = default;

  /**
   * Loads a model from a control file and the weight file that it names.
   *
   * @param controlFile relative to the model directory, or absolute.
   * @param name for the `model` of the options; empty for the file's name without folder and
   *        extension. A name can be used once.
   * @throws Error when a file is missing or damaged, the name is taken, or no session can be opened
   *         with the model; in the last case the name stays taken.
   */
  Model loadModel(const std::string& controlFile, const std::string& name = {}) {
    const std::string used = name.empty() ? stem(controlFile) : name;
    context_->check(Orv_Context_SetModel(context_->handle(), controlFile.c_str(), used.c_str()),
                    "Orv_Context_SetModel");
    return model(used);
  }

  /**
   * Loads a model from memory, which may be freed afterwards.
   *
   * @param controlText text of a control file for its tuning keys; may be empty.
   * @param weights content of a weight file.
   * @param name must not be empty.
   * @throws Error as loadModel.
   */
  Model loadModelFromMemory(std::string_view controlText, std::span<const std::byte> weights,
                            const std::string& name) {
    context_->check(
        Orv_Context_SetModelFromMemory(context_->handle(), controlText.data(), controlText.size(),
                                       weights.data(), weights.size(), name.c_str()),
        "Orv_Context_SetModelFromMemory");
    return model(name);
  }

  /** A model that was loaded. @throws Error when there is none of that name. */
  Model model(const std::string& name) const {
    OrvModelInfo info{};
    info.size = sizeof info;
    context_->check(Orv_Context_GetModelInfo(context_->handle(), name.c_str(), &info),
                    "Orv_Context_GetModelInfo");
    return {.name = name,
            .kind = static_cast<ModelKind>(info.kind),
            .version = info.version,
            .sampleRate = static_cast<int>(info.sampleRate),
            .frameLength = info.frameLength,
            .hop = info.hop,
            .latency = info.latency,
            .weights = info.weights};
  }

  /** The version of the library that is running, as "1.0.0". */
  static std::string_view version() noexcept { return Orv_SDK_GetVersion(); }

  /** For the Orv_Context functions. */
  void* handle() const noexcept { return context_->handle(); }

 private:
  friend class Cleaner;
  friend class Detector;

  static std::string stem(const std::string& path) {
    const std::string file = path.substr(path.find_last_of("/\\") + 1);
    const std::size_t dot = file.find_last_of('.');
    return dot == std::string::npos || dot == 0 ? file : file.substr(0, dot);
  }

  std::shared_ptr<const detail::Context> context_;
};

}  // namespace orvel

#endif  // ORVEL_ORVEL_LIBRARY_HPP
