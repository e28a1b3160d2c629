#pragma once

#include <initializer_list>
#include <string_view>

namespace ORVEL::UTILS {

/**
 * Writes one message to standard error from a frame: with one write to its descriptor and nothing of the
 * streams of C or C++, whose locks and buffers are the host's. It is dropped when standard error does not
 * take it at once (a full pipe, a stopped terminal) or has no reader, and beyond a burst of 1000 messages
 * when they come more often than 10 a second. No signal, no heap, no lock, no exception. At most 8 parts.
 */
void writeErrorLine(std::initializer_list<std::string_view> parts) noexcept;

}  // namespace ORVEL::UTILS
