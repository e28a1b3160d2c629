#include "orv-sdk/session_table.h"

#include <new>

namespace ORVEL {

SessionTable& SessionTable::get() {
  // Never destroyed: a host may still call while the process ends.
  static auto& table = *new SessionTable;
  return table;
}

SessionTable::Slot* SessionTable::slotOf(std::uintptr_t handle) const {
  const std::size_t index = handle & ((std::uintptr_t{1} << kIndexBits) - 1);
  Slot* chunk = chunks_[index / kChunkSlots].load(std::memory_order_acquire);
  return chunk == nullptr ? nullptr : chunk + index % kChunkSlots;
}

std::size_t SessionTable::takeIndex() {
  if (!freeIndices_.empty()) {
    const std::size_t index = freeIndices_.back();
    freeIndices_.pop_back();
    return index;
  }
  if (usedIndices_ == kChunks * kChunkSlots) {
    throw std::bad_alloc();
  }
  if (usedIndices_ % kChunkSlots == 0) {
    ownedChunks_.push_back(std::make_unique<Slot[]>(kChunkSlots));
    // Room for every index at once, so that giving one back later cannot fail.
    freeIndices_.reserve(usedIndices_ + kChunkSlots);
    chunks_[usedIndices_ / kChunkSlots].store(ownedChunks_.back().get(), std::memory_order_release);
  }
  return usedIndices_++;
}

void* SessionTable::add(OrvSessionT* session) {
  const std::size_t index = takeIndex();
  const std::uintptr_t handle = (++lastSerial_ << kIndexBits) | index;
  Slot& slot = *slotOf(handle);
  slot.session.store(session, std::memory_order_relaxed);
  slot.kind.store(session->kind(), std::memory_order_relaxed);
  slot.handle.store(handle, std::memory_order_release);
  return reinterpret_cast<void*>(handle);
}

const SessionTable::Slot* SessionTable::openSlot(const void* handle) const {
  const auto wanted = reinterpret_cast<std::uintptr_t>(handle);
  const Slot* slot = wanted == 0 ? nullptr : slotOf(wanted);
  const bool holds = slot != nullptr && slot->handle.load(std::memory_order_acquire) == wanted;
  return holds ? slot : nullptr;
}

OrvSessionT* SessionTable::find(const void* handle) const {
  const Slot* slot = openSlot(handle);
  return slot == nullptr ? nullptr : slot->session.load(std::memory_order_relaxed);
}

std::optional<SessionKind> SessionTable::kindOf(const void* handle) const {
  const Slot* slot = openSlot(handle);
  if (slot == nullptr) {
    return std::nullopt;
  }
  return slot->kind.load(std::memory_order_relaxed);
}

void SessionTable::remove(const void* handle) {
  if (find(handle) == nullptr) {
    return;
  }
  const auto known = reinterpret_cast<std::uintptr_t>(handle);
  Slot& slot = *slotOf(known);
  slot.handle.store(0, std::memory_order_release);
  slot.session.store(nullptr, std::memory_order_relaxed);
  freeIndices_.push_back(known & ((std::uintptr_t{1} << kIndexBits) - 1));
}

}  // namespace ORVEL
