#pragma once

namespace ORVEL::UTILS {

// The number at the start of a text, read as std::strtod and std::strtoll (base 10) do in the C locale,
// whatever locale the host has set; 0 where there is none.
double realNumberIn(const char* text);
long long wholeNumberIn(const char* text);

}  // namespace ORVEL::UTILS
