#include "utils/mkl/mkl_memory.h"

#include <i_malloc.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "utils/static_tls.h"

namespace ORVEL::UTILS {

namespace {

// Ten times what a transform of the longest frame takes. It is no memory before it is used.
alignas(64) std::array<std::byte, std::size_t{4} << 20U> reserve;
std::size_t reserved = 0;
std::mutex reserveMutex;
ORVEL_STATIC_TLS constinit thread_local bool isMaking = false;

bool isOfReserve(const void* block) {
  return block >= reserve.data() && block < reserve.data() + reserve.size();
}

void* take(std::size_t size) {
  void* const block = std::malloc(std::max(size, std::size_t{1}));
  if (block != nullptr || !isMaking || size > reserve.size() - reserved) {
    return block;
  }
  void* const part = reserve.data() + reserved;
  constexpr std::size_t kAlignment = 64;
  reserved = std::min(reserve.size(), reserved + (size + kAlignment - 1) / kAlignment * kAlignment);
  return part;
}

void give(void* block) {
  if (!isOfReserve(block)) {
    std::free(block);
  }
}

void* takeZeros(std::size_t count, std::size_t size) {
  if (size != 0 && count > reserve.size() / size) {
    return std::calloc(count, size);
  }
  void* const block = take(count * size);
  return block == nullptr ? nullptr : std::memset(block, 0, count * size);
}

void* takeAgain(void* block, std::size_t size) {
  if (!isOfReserve(block)) {
    return std::realloc(block, size);
  }
  void* const moved = take(size);
  if (moved != nullptr) {
    const auto* end = reserve.data() + reserve.size();
    std::memmove(moved, block,
                 std::min(size, static_cast<std::size_t>(end - static_cast<std::byte*>(block))));
  }
  return moved;
}

}  // namespace

void redirectMklMemory() {
  i_malloc = take;
  i_calloc = takeZeros;
  i_realloc = takeAgain;
  i_free = give;
}

MklMemory::MklMemory() : lock_(reserveMutex) {
  reserved = 0;
  isMaking = true;
}

MklMemory::~MklMemory() { isMaking = false; }

bool MklMemory::ranOut() const { return reserved > 0; }

}  // namespace ORVEL::UTILS
