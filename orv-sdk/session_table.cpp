#include "orv-sdk/session_table.h"

#include <new>
#include <utility>

namespace ORVEL {

namespace {
// Made when the library is loaded: a frame with a wrong handle may be the first call.
[[maybe_unused]] const SessionTable& kMadeAtLoading = SessionTable::get();
}  // namespace

SessionTable& SessionTable::get() {
  // Never destroyed: a host may still call while the process ends.
  static auto& table = *new SessionTable;
  return table;
}

SessionTable::Slot* SessionTable::slotAt(std::size_t index) const {
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
    // Room for every index at once, so that giving one back later cannot fail.
    freeIndices_.reserve(usedIndices_ + kChunkSlots);
    ownedChunks_.push_back(std::make_unique<Slot[]>(kChunkSlots));
    chunks_[usedIndices_ / kChunkSlots].store(ownedChunks_.back().get(), std::memory_order_release);
  }
  return usedIndices_++;
}

void* SessionTable::add(std::unique_ptr<OrvSessionT> session, ContextId context) {
  const std::lock_guard lock(mutex_);
  if (lastSerial_ == kMostSerial) {
    throw std::bad_alloc();
  }
  const std::size_t index = takeIndex();
  const std::uintptr_t handle = (++lastSerial_ << kIndexBits) | index;
  Slot& slot = *slotAt(index);
  slot.kind.store(session->kind(), std::memory_order_relaxed);
  slot.context.store(context, std::memory_order_relaxed);
  slot.session.store(session.release(), std::memory_order_relaxed);
  slot.handle.store(handle, std::memory_order_release);
  return reinterpret_cast<void*>(handle);
}

OpenSession SessionTable::find(const void* handle) const {
  const auto wanted = reinterpret_cast<std::uintptr_t>(handle);
  const Slot* slot = slotAt(wanted & ((std::uintptr_t{1} << kIndexBits) - 1));
  if (wanted == 0 || slot == nullptr || slot->handle.load(std::memory_order_acquire) != wanted) {
    return {};
  }
  return {slot->session.load(std::memory_order_relaxed), slot->kind.load(std::memory_order_relaxed),
          slot->context.load(std::memory_order_relaxed)};
}

std::unique_ptr<OrvSessionT> SessionTable::empty(std::size_t index) {
  Slot& slot = *slotAt(index);
  slot.handle.store(0, std::memory_order_release);
  freeIndices_.push_back(index);
  return std::unique_ptr<OrvSessionT>(slot.session.exchange(nullptr, std::memory_order_relaxed));
}

std::unique_ptr<OrvSessionT> SessionTable::remove(const void* handle, ContextId context) {
  const std::lock_guard lock(mutex_);
  const OpenSession open = find(handle);
  if (open.session == nullptr || open.context != context) {
    return nullptr;
  }
  return empty(reinterpret_cast<std::uintptr_t>(handle) & ((std::uintptr_t{1} << kIndexBits) - 1));
}

void SessionTable::removeAll(ContextId context) {
  const std::lock_guard lock(mutex_);
  for (std::size_t index = 0; index < usedIndices_; ++index) {
    const Slot& slot = *slotAt(index);
    if (slot.handle.load(std::memory_order_relaxed) != 0 &&
        slot.context.load(std::memory_order_relaxed) == context) {
      empty(index);
    }
  }
}

}  // namespace ORVEL
