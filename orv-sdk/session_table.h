#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "orv-sdk/session.h"

namespace ORVEL {

/** Number of a context, never given to another one; the global instance has number 0. */
using ContextId = std::uint32_t;
inline constexpr ContextId kGlobalInstance = 0;

/** What a handle leads to. */
struct OpenSession {
  /** Null when the handle is not that of an open session. */
  OrvSessionT* session = nullptr;
  SessionKind kind{};
  ContextId context = kGlobalInstance;
};

/**
 * Holds all open sessions of the process. They are found by their handles in constant time and without a
 * lock, while other threads add and remove other sessions. A handle is a slot number and a serial number
 * that is never given out twice, so a handle of a closed session finds nothing, also when its slot is in
 * use again.
 *
 * It outlives every instance, and so do its serial numbers.
 */
class SessionTable : private UTILS::NonCopyMovable {
 public:
  static SessionTable& get();

  /** Takes a session and gives its handle. */
  void* add(std::unique_ptr<OrvSessionT> session, ContextId context);

  /** Looks a handle up without touching the session: another thread may be closing it. */
  OpenSession find(const void* handle) const;

  /** Gives the session back when that context has one of that handle. */
  std::unique_ptr<OrvSessionT> remove(const void* handle, ContextId context);

  /** Destroys all sessions of a context. */
  void removeAll(ContextId context);

 private:
  struct Slot {
    std::atomic<std::uintptr_t> handle{0};
    std::atomic<OrvSessionT*> session{nullptr};
    std::atomic<SessionKind> kind{};
    std::atomic<ContextId> context{0};
  };

  // In handles of 32 bits: 4096 sessions at a time, a million over the life of a process.
  static constexpr unsigned kIndexBits = sizeof(std::uintptr_t) == 8 ? 22 : 12;
  static constexpr std::uintptr_t kMostSerial = ~std::uintptr_t{0} >> kIndexBits;
  static constexpr std::size_t kChunkSlots = 1024;
  static constexpr std::size_t kChunks = (std::size_t{1} << kIndexBits) / kChunkSlots;

  SessionTable() = default;
  Slot* slotAt(std::size_t index) const;
  std::size_t takeIndex();
  std::unique_ptr<OrvSessionT> empty(std::size_t index);

  std::mutex mutex_;  ///< of all that follows but the slots themselves
  std::array<std::atomic<Slot*>, kChunks> chunks_{};
  std::vector<std::unique_ptr<Slot[]>> ownedChunks_;
  std::vector<std::size_t> freeIndices_;
  std::size_t usedIndices_ = 0;
  std::uintptr_t lastSerial_ = 0;
};

}  // namespace ORVEL
