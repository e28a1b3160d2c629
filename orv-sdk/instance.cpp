#include "orv-sdk/instance.h"

#include <atomic>
#include <memory>

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

/** The instance, published for readers that take no lock. Not destroyed at exit: threads may still use it. */
constinit std::atomic<InstanceT*> published{nullptr};

InstanceT* createInstance(const char* directory) {
  const std::lock_guard lock(instanceMutex());
  if (published.load() != nullptr) {
    misuse("DOUBLE INITIALIZATION WITHOUT DESTROYING", 43);
  }
  auto instance = std::make_unique<InstanceT>(kGlobalInstance, withSeparator(directory),
                                              UTILS::standardStreams());
  published.store(instance.get(), std::memory_order_release);
  return instance.release();
}

InstanceT* destroyInstance() {
  const std::lock_guard lock(instanceMutex());
  const std::unique_ptr<InstanceT> instance(published.exchange(nullptr));
  if (instance == nullptr) {
    misuse("DESTROYING WITHOUT INTIALIZATION", 52);
  }
  return nullptr;
}

}  // namespace

std::mutex& instanceMutex() {
  static std::mutex mutex;
  return mutex;
}

bool instanceExists() noexcept { return published.load(std::memory_order_acquire) != nullptr; }

InstanceT* Instance(InstanceAccess mode, const char* directory) {
  switch (mode) {
    case InstanceAccess::kGet: {
      InstanceT* instance = published.load(std::memory_order_acquire);
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
