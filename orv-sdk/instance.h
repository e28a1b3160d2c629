#pragma once

#include <mutex>
#include <string>
#include <utility>

#include "orv-sdk/frame_resampler.h"
#include "orv-sdk/session_table.h"
#include "utils/non_copyable.h"
#include "weights/model_store.h"

namespace ORVEL {

/**
 * Models and the sessions opened with them. The global functions work on one that they create and
 * destroy; every context has one of its own. Not locked.
 */
class InstanceT : private UTILS::NonCopyMovable {
 public:
  /** `directory` is what the global instance's relative paths start from, with its separator. */
  InstanceT(ContextId id, std::string directory, UTILS::Diagnostics& diagnostics)
      : id_(id), models_(std::move(directory), diagnostics) {}
  /** Destroys its open sessions first. */
  ~InstanceT() { SessionTable::get().removeAll(id_); }

  ContextId id() const { return id_; }
  WEIGHTS::ModelStore& models() { return models_; }

  /** Opens a session and gives its handle. */
  void* openSession(const OrvSessionT::Request& request) {
    return SessionTable::get().add(std::make_unique<OrvSessionT>(models_, resamplers_, request),
                                   id_);
  }

 private:
  ContextId id_;
  WEIGHTS::ModelStore models_;
  ResamplerCache resamplers_;
};

enum class InstanceAccess { kGet = 0, kCreate = 1, kDestroy = 2 };

/**
 * The one way to the global instance: gets, creates or destroys it. Get takes no lock, the others hold
 * the instance mutex. The result of destroy is null.
 *
 * @throws ORVEL_Exception when there is none to get or destroy, one already to create, or for any other
 *         mode.
 */
InstanceT* Instance(InstanceAccess mode, const char* directory = nullptr);

/** Held while models are loaded into the global instance and sessions of it opened or closed. */
std::mutex& instanceMutex();

/** Whether there is a global instance; takes no lock. */
bool instanceExists() noexcept;

}  // namespace ORVEL
