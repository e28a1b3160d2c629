#include "orv-sdk/batch.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <functional>
#include <span>

#include "orv-sdk/exports.h"
#include "utils/floating_point_mode.h"

namespace ORVEL {

namespace {

using NOISE_CANCELLER::Network;
using NOISE_CANCELLER::NetworkWeights;

/** Neighbours in the arrays that are processed together; what a group needs lies on the stack. */
constexpr std::size_t kGroup = Network::kMostTogether;

struct Member {
  OpenSession open;
  std::uint32_t index;
};

// Brings the networks of the same weights together; a hop without a network comes first.
void evaluate(std::span<Network::Task> tasks) {
  std::sort(tasks.begin(), tasks.end(), [](const Network::Task& a, const Network::Task& b) {
    return std::less<>()(a.weights(), b.weights());
  });
  for (auto first = tasks.begin(); first != tasks.end();) {
    const NetworkWeights* weights = first->weights();
    const auto last = std::find_if(
        first, tasks.end(), [=](const Network::Task& task) { return task.weights() != weights; });
    if (weights != nullptr) {
      Network::evaluate({first, last});
    }
    first = last;
  }
}

// The first hop of every session that has one, then the second ones.
void processHops(std::span<const Member> members) {
  const UTILS::FloatingPointMode mode(UTILS::FloatingPointMode::Denormals::kZero);
  std::array<NOISE_CANCELLER::NoiseCleaner*, kGroup> cleaners;
  std::transform(members.begin(), members.end(), cleaners.begin(),
                 [](const Member& member) { return &member.open.session->cleaner(); });
  std::array<Network::Task, kGroup> tasks;
  for (std::size_t count = members.size(); count > 0;) {
    std::size_t due = 0;
    for (std::size_t i = 0; i < count; ++i) {
      if (const auto task = cleaners[i]->prepareHop()) {
        tasks[due] = *task;
        cleaners[due++] = cleaners[i];
      }
    }
    evaluate(std::span(tasks).first(due));
    std::for_each_n(cleaners.begin(), due, [](auto* cleaner) { cleaner->finishHop(); });
    count = due;
  }
}

// The frames of the places from `first` to before `end`, whose sessions join the batch of that number.
template <class Sample>
void cleanGroup(const Batch<Sample>& batch, std::uint64_t number, std::uint32_t first,
                std::uint32_t end, const char* mismatch) {
  std::array<Member, kGroup> members;
  std::size_t size = 0;
  for (std::uint32_t i = first; i < end; ++i) {
    const OpenSession open = SessionTable::get().find(batch.sessions[i]);
    if (!fits(open, SessionKind::kNoiseCleaning)) {
      batch.statuses[i] = refuseHandle(open, SessionKind::kNoiseCleaning);
    } else if (!open.session->joins(number)) {
      batch.statuses[i] = refuseRepeated(open);
    } else if (!open.session->accepts(batch.inputs[i], batch.inputCounts[i], batch.outputs[i],
                                      batch.outputCounts[i])) {
      batch.statuses[i] = statusOf(FrameResult::kRefused, open, Refusal::kFrame, mismatch);
    } else {
      open.session->begin(batch.inputs[i]);
      members[size++] = {open, i};
    }
  }
  const auto joined = std::span(members).first(size);
  processHops(joined);
  for (const Member& member : joined) {
    batch.statuses[member.index] = statusOf(member.open.session->end(batch.outputs[member.index]),
                                            member.open, Refusal::kFrame, mismatch);
  }
}

}  // namespace

template <class Sample>
int cleanBatch(const Batch<Sample>& batch, const char* mismatch) noexcept {
  if (batch.count == 0) {
    return kSuccess;
  }
  if (batch.sessions == nullptr || batch.inputs == nullptr || batch.inputCounts == nullptr ||
      batch.outputs == nullptr || batch.outputCounts == nullptr || batch.statuses == nullptr) {
    rememberRefusal(kGlobalInstance, Refusal::kNullArray);
    return kRejected;
  }
  const UTILS::FloatingPointMode mode(UTILS::FloatingPointMode::Denormals::kKept);
  static constinit std::atomic<std::uint64_t> batches{0};
  const std::uint64_t number = ++batches;
  for (std::uint32_t first = 0; first < batch.count;) {
    const std::uint32_t end =
        first + std::min(batch.count - first, static_cast<std::uint32_t>(kGroup));
    guarded<int>(
        [&]() -> int {
          cleanGroup(batch, number, first, end, mismatch);
          return kSuccess;
        },
        [&](const char* text, const char* message) noexcept {
          for (std::uint32_t i = first; i < end; ++i) {
            reportFailure(SessionTable::get().find(batch.sessions[i]).context, text, message);
          }
        },
        [&](Status status) -> int {
          std::fill(batch.statuses + first, batch.statuses + end, status);
          return status;
        });
    first = end;
  }
  const int* const first = batch.statuses;
  const int* const last = first + batch.count;
  const int* failed = std::find_if(first, last, [](int status) { return status != kSuccess; });
  return failed == last ? kSuccess : *failed;
}

template int cleanBatch(const Batch<float>&, const char*) noexcept;
template int cleanBatch(const Batch<std::int16_t>&, const char*) noexcept;

}  // namespace ORVEL
