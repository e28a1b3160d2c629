#include "weights/digest.h"

#include <sha256.h>

#include <array>
#include <cstdint>

namespace ORVEL::WEIGHTS {

std::string sha256(std::string_view bytes) {
  SHA256_CTX state{};
  SHA256Init(&state);
  SHA256Update(&state, reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  std::array<std::uint8_t, SHA256_DIGEST_LENGTH> digest{};
  SHA256Final(digest.data(), &state);
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  for (const std::uint8_t byte : digest) {
    text += kDigits[byte >> 4U];
    text += kDigits[byte & 15U];
  }
  return text;
}

}  // namespace ORVEL::WEIGHTS
