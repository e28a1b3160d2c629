#pragma once

#include <string>
#include <string_view>

namespace ORVEL::WEIGHTS {

/** The SHA-256 of the bytes, as 64 hexadecimal digits in lower case. */
std::string sha256(std::string_view bytes);

}  // namespace ORVEL::WEIGHTS
