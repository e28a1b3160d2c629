#pragma once

#include <cstdint>

namespace ORVEL {

/** A frame for each of `count` sessions: arrays as long as that, in the order of the C functions. */
template <class Sample>
struct Batch {
  std::uint32_t count;
  void* const* sessions;
  const Sample* const* inputs;
  const std::uint32_t* inputCounts;
  Sample* const* outputs;
  const std::uint32_t* outputCounts;
  int* statuses;
};

/**
 * Cleans the frames. Sessions of one model whose hops fall due together share the products of their
 * networks. Real-time safe.
 *
 * @param mismatch what is said of a frame whose counts or pointers are wrong.
 * @return 0, the first status that is not 0, or 1 when an array is null.
 */
template <class Sample>
int cleanBatch(const Batch<Sample>& batch, const char* mismatch) noexcept;

}  // namespace ORVEL
