#include "orv-sdk/exports.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <memory>

#include "orv-sdk/context.h"
#include "orv-sdk/instance.h"

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

/** A line in storage of its own. */
class Line {
 public:
  Line& operator<<(std::string_view text) {
    const std::size_t count = std::min(text.size(), text_.size() - size_);
    std::copy_n(text.begin(), count, text_.begin() + static_cast<std::ptrdiff_t>(size_));
    size_ += count;
    return *this;
  }
  Line& operator<<(std::uint32_t number) {
    std::array<char, 10> digits{};
    const auto end = std::to_chars(digits.begin(), digits.end(), number).ptr;
    return *this << std::string_view(digits.data(), static_cast<std::size_t>(end - digits.data()));
  }
  std::string_view text() const { return {text_.data(), size_}; }

 private:
  std::array<char, 200> text_{};
  std::size_t size_ = 0;
};

}  // namespace

int refuseHandle(const OpenSession& open, SessionKind wanted) noexcept {
  const bool isOpen = open.session != nullptr;
  rememberRefusal(open.context, isOpen ? wrongKind(wanted) : Refusal::kUnknownHandle);
  if (open.context != kGlobalInstance) {
    return kWrongSession;
  }
  if (!instanceExists()) {
    // The text of the exception that the other functions throw here: a frame must not use the heap.
    printErrors(
        "ORVEL_Exeption in file orv-sdk/instance Line 35 Function Instance\n messege TRY TO GET "
        "NULL "
        "INSTANCE,ISN'T INITIALIZED\n");
    return kLibraryError;
  }
  printErrors("The Session pointer is wrong insert existing session pointer\n");
  return kWrongSession;
}

int refuseFrame(const OpenSession& open, Refusal refusal, const char* text) noexcept {
  const std::uint32_t input = open.session->inputSize();
  const std::uint32_t output = open.session->outputSize();
  rememberRefusal(open.context, refusal, input, output);
  if (open.context == kGlobalInstance) {
    Line line;
    line << text << "\n input size must be " << input << "\n output size must be " << output
         << "\n";
    printErrors(line.text());
  }
  return kRejected;
}

int closeSession(void* handle, SessionKind expected) noexcept {
  const OpenSession open = SessionTable::get().find(handle);
  return open.context != kGlobalInstance
             ? closeInContext(open, handle, expected)
             : guardedStatus([&] { return closeInGlobalInstance(open, handle, expected); });
}

}  // namespace ORVEL
