#pragma once

#include <cstddef>
#include <cstdint>

namespace ORVEL::UTILS {

/** Whether none of the values is infinite or NaN. Without a branch, so that it is vectorised. */
inline bool allFinite(const float* values, std::size_t count) {
  constexpr std::uint32_t kExponent = 0x7F800000U;
  std::uint32_t infinite = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint32_t bits = __builtin_bit_cast(std::uint32_t, values[i]) & kExponent;
    infinite |= static_cast<std::uint32_t>(bits == kExponent);
  }
  return infinite == 0;
}

}  // namespace ORVEL::UTILS
