#include "orv-sdk/instance.h"

#include <atomic>

#include "orv-sdk/session_table.h"
#include "utils/diagnostics.h"
#include "utils/orvel_exception.h"

namespace ORVEL {

namespace {

std::string withSeparator(const char* directory) {
  std::string path = directory == nullptr ? "" : directory;
  if (!path.empty() && path.back() != '\\') {
    path += '\\';
  }
  return path;
}

[[noreturn]] void misuse(const char* message, int line) {
  throw UTILS::ORVEL_Exception(message, "orv-sdk/instance", line, "Instance");
}

/** The instance, published for readers that take no lock; destroyed with the process at the latest. */
struct Holder {
  ~Holder() { delete published.exchange(nullptr); }
  std::atomic<InstanceT*> published{nullptr};
};

std::atomic<InstanceT*>& published() {
  static Holder holder;
  return holder.published;
}

InstanceT* createInstance(const char* directory) {
  const std::lock_guard lock(InstanceT::mutex());
  if (published().load() != nullptr) {
    misuse("DOUBLE INITIALIZATION WITHOUT DESTROYING", 43);
  }
  auto instance = std::make_unique<InstanceT>(directory);
  published().store(instance.get(), std::memory_order_release);
  return instance.release();
}

InstanceT* destroyInstance() {
  const std::lock_guard lock(InstanceT::mutex());
  const std::unique_ptr<InstanceT> instance(published().exchange(nullptr));
  if (instance == nullptr) {
    misuse("DESTROYING WITHOUT INTIALIZATION", 52);
  }
  return nullptr;
}

}  // namespace

InstanceT::InstanceT(const char* directory) : models_(withSeparator(directory)) {}

InstanceT::~InstanceT() {
  for (const OpenSession& open : sessions_) {
    SessionTable::get().remove(open.handle);
  }
}

std::mutex& InstanceT::mutex() {
  static std::mutex mutex;
  return mutex;
}

bool InstanceT::loadModel(const char* controlFileName, const char* modelName) {
  return models_.load(controlFileName, modelName == nullptr ? "" : modelName);
}

void* InstanceT::addSession(const OrvSessionT::Request& request) {
  sessions_.push_back({nullptr, std::make_unique<OrvSessionT>(models_, resamplers_, request)});
  const auto position = std::prev(sessions_.end());
  try {
    position->handle = SessionTable::get().add(position->session.get());
    positions_.emplace(position->handle, position);
  } catch (...) {
    SessionTable::get().remove(position->handle);
    sessions_.erase(position);
    throw;
  }
  return position->handle;
}

bool InstanceT::removeSession(void* session) {
  const std::lock_guard lock(mutex());
  const auto known = positions_.find(session);
  if (known == positions_.end()) {
    UTILS::printLine("WARNING SESSION ISN'T FOUND");
    return false;
  }
  SessionTable::get().remove(session);
  sessions_.erase(known->second);
  positions_.erase(known);
  return true;
}

OrvSessionT* InstanceT::findSession(const void* session) {
  return SessionTable::get().find(session);
}

std::optional<SessionKind> InstanceT::findKind(const void* session) {
  return SessionTable::get().kindOf(session);
}

InstanceT* Instance(InstanceAccess mode, const char* directory) {
  switch (mode) {
    case InstanceAccess::kGet: {
      InstanceT* instance = published().load(std::memory_order_acquire);
      if (instance == nullptr) {
        misuse("TRY TO GET NULL INSTANCE,ISN'T INITIALIZED", 35);
      }
      return instance;
    }
    case InstanceAccess::kCreate:
      return createInstance(directory);
    case InstanceAccess::kDestroy:
      return destroyInstance();
  }
  misuse("Incorrect instance access mode...", 57);
}

}  // namespace ORVEL
