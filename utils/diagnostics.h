#pragma once

#include <iostream>
#include <string_view>

/** The library's only writers to the process's standard streams. */
namespace ORVEL::UTILS {

/** A line on standard output: what the loader has to say. */
template <class... Parts>
void printLine(const Parts&... parts) {
  (std::cout << ... << parts) << std::endl;
}

/** A text on standard output as it stands, no line end added: warnings of tuning keys. */
inline void printText(std::string_view text) { std::cout << text << std::flush; }

/** A line on standard error: caught exceptions, rejected frames and sessions. */
template <class... Parts>
void printErrorLine(const Parts&... parts) {
  (std::cerr << ... << parts) << std::endl;
}

}  // namespace ORVEL::UTILS
