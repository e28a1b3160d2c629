#pragma once

#include "orv-sdk/guarded.h"
#include "orv-sdk/instance.h"

namespace ORVEL {

/** Runs the body with the open session of that kind; any other handle is refused with status 2. */
template <class Body>
int withSession(void* handle, SessionKind kind, Body&& body) noexcept {
  return guardedStatus([&]() -> int {
    Instance(InstanceAccess::kGet);
    OrvSessionT* session = InstanceT::findSession(handle);
    if (session == nullptr || session->kind() != kind) {
      UTILS::printErrorLine("The Session pointer is wrong insert existing session pointer");
      return kWrongSession;
    }
    return body(*session);
  });
}

}  // namespace ORVEL
