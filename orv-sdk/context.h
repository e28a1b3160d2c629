#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "orv-sdk/instance.h"
#include "orvel/orv_sdk_ext.h"
#include "utils/diagnostics.h"

namespace ORVEL {

/** Gives a context's messages to the host's handler, one at a time; silent without a handler. */
class MessageHandler final : public UTILS::Diagnostics {
 public:
  /** Returns when the handler so far is not running and will not be called again. */
  void set(OrvMessageHandler handler, void* user);

  /** A message of any severity; line ends in the text become blanks. */
  void send(OrvSeverity severity, std::string_view text);

 protected:
  void onNote(std::string_view text) override { send(ORV_SEVERITY_INFO, text); }
  void onWarning(std::string_view text) override { send(ORV_SEVERITY_WARNING, text); }
  // What a cleaner finds wrong does not fail the call.
  void onError(std::string_view text) override { send(ORV_SEVERITY_WARNING, text); }

 private:
  std::mutex mutex_;
  OrvMessageHandler handler_ = nullptr;
  void* user_ = nullptr;
};

/**
 * An instance of its own behind a handle: models read by strict rules, names, sessions. Prints nothing;
 * all failures are exceptions whose messages name what is wrong. All functions may be called by several
 * threads at once.
 */
class Context : private UTILS::NonCopyMovable {
 public:
  Context(ContextId id, const char* directory);

  ContextId id() const { return instance_.id(); }
  MessageHandler& messages() { return messages_; }

  /** @throws ModelError with nothing registered. A model name that is null or empty is taken from the file. */
  void loadFile(const char* controlFile, const char* modelName);
  void loadContent(std::string_view control, std::string_view weights, const char* modelName);

  /** @throws ORVEL_Exception or ModelError when no session can be opened as requested. */
  void* openSession(const OrvSessionT::Request& request);

  /** @throws ModelError when there is no such model. */
  OrvModelInfo modelInfo(const char* modelName);

 private:
  void refuseKnownName(const std::string& name);
  void add(const std::string& name, const WEIGHTS::ModelFiles& files);
  void requireModel(const OrvSessionT::Request& request) const;

  MessageHandler messages_;
  std::string directory_;
  std::mutex mutex_;  ///< of all that follows
  InstanceT instance_;
  std::map<std::string, OrvModelInfo> infos_;
};

/** Makes a context and gives its handle. */
void* createContext(const char* directory);

/** The context of a handle; null for every other value. */
std::shared_ptr<Context> findContext(const void* handle);
std::shared_ptr<Context> findContext(ContextId id);

/** Ends the context of a handle with its sessions; false when there is none. */
bool destroyContext(const void* handle);

}  // namespace ORVEL
