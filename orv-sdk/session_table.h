#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "orv-sdk/session.h"

namespace ORVEL {

/**
 * Finds open sessions by their handles, in constant time and without a lock, while other threads add
 * and remove other sessions. A handle is a slot number and a serial number that is never given out
 * twice, so a handle of a closed session finds nothing, also when its slot is in use again.
 *
 * One per process: it outlives every instance, and so do its serial numbers.
 */
class SessionTable : private UTILS::NonCopyMovable {
 public:
  static SessionTable& get();

  /** Gives the session a handle. One thread at a time adds or removes. */
  void* add(OrvSessionT* session);
  /** The open session of that handle, or null. */
  OrvSessionT* find(const void* handle) const;
  /** The kind of that session, without touching it: another thread may be closing it. */
  std::optional<SessionKind> kindOf(const void* handle) const;
  /** Forgets the handle; unknown ones are ignored. One thread at a time adds or removes. */
  void remove(const void* handle);

 private:
  struct Slot {
    std::atomic<std::uintptr_t> handle{0};
    std::atomic<OrvSessionT*> session{nullptr};
    std::atomic<SessionKind> kind{};
  };

  static constexpr unsigned kIndexBits = 22;
  static constexpr std::size_t kChunkSlots = 1024;
  static constexpr std::size_t kChunks = (std::size_t{1} << kIndexBits) / kChunkSlots;
  static_assert(sizeof(std::uintptr_t) == 8, "handles hold a slot and a serial number");

  SessionTable() = default;
  Slot* slotOf(std::uintptr_t handle) const;
  /** The slot that holds this very handle, or null. */
  const Slot* openSlot(const void* handle) const;
  std::size_t takeIndex();

  std::array<std::atomic<Slot*>, kChunks> chunks_{};
  std::vector<std::unique_ptr<Slot[]>> ownedChunks_;
  std::vector<std::size_t> freeIndices_;
  std::size_t usedIndices_ = 0;
  std::uintptr_t lastSerial_ = 0;
};

}  // namespace ORVEL
