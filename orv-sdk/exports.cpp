#include "orv-sdk/exports.h"

#include <array>
#include <charconv>
#include <memory>

#include "orv-sdk/context.h"
#include "orv-sdk/instance.h"
#include "utils/error_line.h"

namespace ORVEL {

namespace {

Refusal wrongKind(SessionKind wanted) {
  return wanted == SessionKind::kNoiseCleaning ? Refusal::kNotCleaning : Refusal::kNotDetecting;
}

int closeInContext(const OpenSession& open, void* handle, SessionKind expected) {
  if (open.kind != expected) {
    rememberRefusal(open.context, wrongKind(expected));
    return kLibraryError;
  }
  const auto closed = SessionTable::get().remove(handle, open.context);
  return closed != nullptr ? kSuccess : kRejected;
}

int closeInGlobalInstance(const OpenSession& open, void* handle, SessionKind expected) {
  Instance(InstanceAccess::kGet);
  if (open.session == nullptr || open.kind != expected) {
    throw UTILS::ORVEL_Exception(
        "Trying to close a non-existant session or session of incompatible type", "orv-sdk/orv-sdk",
        37, "closeSession");
  }
  const std::lock_guard lock(instanceMutex());
  if (SessionTable::get().remove(handle, kGlobalInstance) == nullptr) {
    UTILS::standardStreams().warnLine("WARNING SESSION ISN'T FOUND");
    return kRejected;
  }
  return kSuccess;
}

/** A number's digits, in storage of its own. */
class Digits {
 public:
  explicit Digits(std::uint32_t number)
      : end_(std::to_chars(text_.data(), text_.data() + text_.size(), number).ptr) {}
  std::string_view text() const {
    return {text_.data(), static_cast<std::size_t>(end_ - text_.data())};
  }

 private:
  std::array<char, 10> text_{};
  const char* end_;
};

// Says `text` and the frame's sizes for sessions of the global instance.
int refuseFrame(const OpenSession& open, Refusal refusal, const char* text) noexcept {
  const std::uint32_t input = open.session->inputSize();
  const std::uint32_t output = open.session->outputSize();
  rememberRefusal(open.context, refusal, input, output);
  if (open.context == kGlobalInstance) {
    UTILS::writeErrorLine({text, "\n input size must be ", Digits(input).text(),
                           "\n output size must be ", Digits(output).text(), "\n"});
  }
  return kRejected;
}

}  // namespace

int refuseHandle(const OpenSession& open, WantedKind wanted) noexcept {
  const bool isOpen = open.session != nullptr;
  rememberRefusal(open.context, isOpen && wanted ? wrongKind(*wanted) : Refusal::kUnknownHandle);
  if (open.context != kGlobalInstance) {
    return kWrongSession;
  }
  if (!instanceExists()) {
    // The text of the exception that the other functions throw here: a frame must not use the heap.
    UTILS::writeErrorLine(
        {"ORVEL_Exeption in file orv-sdk/instance Line 35 Function Instance\n messege TRY TO GET "
         "NULL INSTANCE,ISN'T INITIALIZED\n"});
    return kLibraryError;
  }
  UTILS::writeErrorLine({"The Session pointer is wrong insert existing session pointer\n"});
  return kWrongSession;
}

int refuseRepeated(const OpenSession& open) noexcept {
  rememberRefusal(open.context, Refusal::kRepeated);
  if (open.context == kGlobalInstance) {
    UTILS::writeErrorLine({"The session is in the batch more than once\n"});
  }
  return kRejected;
}

void reportFailure(ContextId context, const char* text, const char* message) noexcept {
  if (context == kGlobalInstance) {
    UTILS::writeErrorLine({text, "\n"});
  } else {
    rememberFailure(context, message);
  }
}

int statusOf(FrameResult result, const OpenSession& open, Refusal refusal,
             const char* text) noexcept {
  if (result == FrameResult::kDone) {
    return kSuccess;
  }
  if (result == FrameResult::kRefused) {
    return refuseFrame(open, refusal, text);
  }
  rememberRefusal(open.context, Refusal::kTransform);
  if (open.context == kGlobalInstance && open.session->failsFirstTime()) {
    UTILS::writeErrorLine({"ERROR a transform failed, frames of the session are silent\n"});
  }
  return kLibraryError;
}

int closeSession(void* handle, SessionKind expected) noexcept {
  const UTILS::CallScope scope;
  const OpenSession open = SessionTable::get().find(handle);
  return open.context != kGlobalInstance
             ? closeInContext(open, handle, expected)
             : guardedStatus([&] { return closeInGlobalInstance(open, handle, expected); });
}

}  // namespace ORVEL
