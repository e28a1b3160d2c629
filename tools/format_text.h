#pragma once

#include <array>
#include <cstdarg>
#include <cstdio>
#include <string>

namespace ORVEL::TOOLS {

/** printf() into a string of at most 255 characters. */
#if defined(__GNUC__)
__attribute__((format(printf, 1, 2)))
#endif
inline std::string
formatText(const char* pattern, ...) {
  std::array<char, 256> text{};
  std::va_list values;
  va_start(values, pattern);
  std::vsnprintf(text.data(), text.size(), pattern, values);
  va_end(values);
  return text.data();
}

}  // namespace ORVEL::TOOLS
