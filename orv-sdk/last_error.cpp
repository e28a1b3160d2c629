#include "orv-sdk/last_error.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <map>
#include <memory>
#include <new>
#include <string>

#include "utils/static_tls.h"
#include "utils/thread_slot.h"

namespace ORVEL {

namespace {

struct RememberedRefusal {
  ContextId context = 0;
  Refusal refusal = Refusal::kNone;
  std::uint16_t inputSize = 0;
  std::uint16_t outputSize = 0;
};

/** The newest refusal comes first; a context has one at most. */
using Refusals = std::array<RememberedRefusal, 4>;
ORVEL_STATIC_TLS constinit thread_local Refusals refusals{};

using Failures = std::map<ContextId, std::string>;
// Contexts come and go; a thread that outlives many of them need not remember all.
constexpr std::size_t kMostFailures = 256;

/** The calling thread's failures. */
const UTILS::ThreadSlot threadFailures([](void* failures) {
  delete static_cast<Failures*>(failures);
});

Failures* findFailures() noexcept { return static_cast<Failures*>(threadFailures.get()); }

Failures& obtainFailures() {
  if (Failures* known = findFailures()) {
    return *known;
  }
  auto failures = std::make_unique<Failures>();
  if (!threadFailures.set(failures.get())) {
    throw std::bad_alloc();
  }
  return *failures.release();
}

RememberedRefusal* refusalOf(ContextId context) {
  const auto known = std::find_if(refusals.begin(), refusals.end(), [&](const auto& entry) {
    return entry.context == context && entry.refusal != Refusal::kNone;
  });
  return known == refusals.end() ? nullptr : &*known;
}

std::string textOf(const RememberedRefusal& refused) {
  const std::string input = std::to_string(refused.inputSize);
  switch (refused.refusal) {
    case Refusal::kNone:
      break;
    case Refusal::kUnknownHandle:
      return "the handle is not that of an open session";
    case Refusal::kNotCleaning:
      return "the session detects voice activity, the function is for noise cleaning";
    case Refusal::kNotDetecting:
      return "the session cleans noise, the function is for voice activity";
    case Refusal::kFrame:
      return "wrong count or null pointer: a frame has " + input + " samples at the input and " +
             std::to_string(refused.outputSize) + " at the output";
    case Refusal::kDetectorFrame:
      return "wrong count or null pointer: a frame has " + input + " samples and gives one score";
    case Refusal::kTransform:
      return "a transform failed: the frame is silent, its score 0";
    case Refusal::kLimit:
      return "the attenuation limit must be finite and not negative";
    case Refusal::kNullResult:
      return "the pointer for the result is null";
    case Refusal::kNullArray:
      return "an array of the batch is null";
    case Refusal::kRepeated:
      return "the session is in the batch more than once";
  }
  return "";
}

}  // namespace

void rememberRefusal(ContextId context, Refusal refusal, std::uint32_t inputSize,
                     std::uint32_t outputSize) noexcept {
  RememberedRefusal* known = refusalOf(context);
  RememberedRefusal* last = known != nullptr ? known : &refusals.back();
  std::move_backward(refusals.data(), last, last + 1);
  refusals.front() = {context, refusal, static_cast<std::uint16_t>(inputSize),
                      static_cast<std::uint16_t>(outputSize)};
}

void rememberFailure(ContextId context, std::string_view reason) noexcept {
  if (RememberedRefusal* known = refusalOf(context)) {
    *known = {};
  }
  try {
    Failures& failures = obtainFailures();
    failures[context] = reason;
    if (failures.size() > kMostFailures) {
      failures.erase(
          std::next(failures.begin()));  // the oldest; the first one belongs to no context
    }
  } catch (...) {
    forgetFailure(context);
  }
}

void forgetFailure(ContextId context) noexcept {
  if (Failures* failures = findFailures()) {
    failures->erase(context);
  }
}

const char* lastFailure(ContextId context) noexcept {
  try {
    if (const RememberedRefusal* refused = refusalOf(context)) {
      return (obtainFailures()[context] = textOf(*refused)).c_str();
    }
    const Failures* failures = findFailures();
    if (failures == nullptr) {
      return "";
    }
    const auto known = failures->find(context);
    return known == failures->end() ? "" : known->second.c_str();
  } catch (...) {
    return "out of memory";
  }
}

}  // namespace ORVEL
