#pragma once

#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "orv-sdk/resampler_cache.h"
#include "orv-sdk/session.h"
#include "utils/non_copyable.h"
#include "weights/model_store.h"

namespace ORVEL {

/** What the library holds between init and destroy: the models and every open session. */
class InstanceT : private UTILS::NonCopyMovable {
 public:
  explicit InstanceT(const char* directory);
  ~InstanceT();

  /** Loads a model; the caller holds the instance mutex. */
  bool loadModel(const char* controlFileName, const char* modelName);

  /** Builds a session and gives its handle; the caller holds the instance mutex. */
  void* addSession(const OrvSessionT::Request& request);

  /** Destroys a session; false, with a warning, when there is none of that handle. Locks the mutex. */
  bool removeSession(void* session);

  static OrvSessionT* findSession(const void* session);
  /** The kind of an open session that another thread may be closing. */
  static std::optional<SessionKind> findKind(const void* session);
  static std::mutex& mutex();

 private:
  struct OpenSession {
    void* handle;
    std::unique_ptr<OrvSessionT> session;
  };

  WEIGHTS::ModelStore models_;
  ResamplerCache resamplers_;
  std::list<OpenSession> sessions_;
  /** Where each session stands in the list. */
  std::map<void*, std::list<OpenSession>::iterator> positions_;
};

enum class InstanceAccess { kGet = 0, kCreate = 1, kDestroy = 2 };

/**
 * The one way to the instance: gets, creates or destroys it. Get takes no lock, the others hold the
 * instance mutex. The result of destroy is null.
 *
 * @throws ORVEL_Exception when there is none to get or destroy, one already to create, or for any other
 *         mode.
 */
InstanceT* Instance(InstanceAccess mode, const char* directory = nullptr);

}  // namespace ORVEL
