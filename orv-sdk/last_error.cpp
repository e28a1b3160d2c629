#include "orv-sdk/last_error.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <map>
#include <string>

// A library that is opened at run time gets the other kinds of thread-local storage from the heap, when a
// thread first touches them. This kind is scarce: a few words.
#if defined(__GNUC__)
#define ORVEL_STATIC_TLS __attribute__((tls_model("initial-exec")))
#else
#define ORVEL_STATIC_TLS
#endif

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

thread_local std::map<ContextId, std::string> failures;
// Contexts come and go; a thread that outlives many of them need not remember all.
constexpr std::size_t kMostFailures = 256;

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
    case Refusal::kLimit:
      return "the attenuation limit must be finite and not negative";
    case Refusal::kNullResult:
      return "the pointer for the result is null";
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
    failures[context] = reason;
    if (failures.size() > kMostFailures) {
      failures.erase(
          std::next(failures.begin()));  // the oldest; the first one belongs to no context
    }
  } catch (...) {
    failures.erase(context);
  }
}

const char* lastFailure(ContextId context) noexcept {
  try {
    if (const RememberedRefusal* refused = refusalOf(context)) {
      return (failures[context] = textOf(*refused)).c_str();
    }
    const auto known = failures.find(context);
    return known == failures.end() ? "" : known->second.c_str();
  } catch (...) {
    return "out of memory";
  }
}

}  // namespace ORVEL
