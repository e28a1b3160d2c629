#pragma once

namespace ORVEL::UTILS {

/**
 * Numbers at the start of a text, read as std::atof and std::strtol (base 10) do in the C locale,
 * whatever locale the host has set: leading white space and a trailing rest are skipped, a text that
 * begins with no number gives 0. Real numbers may be hexadecimal, infinite or NaN.
 */
double readRealInCLocale(const char* text);
long readWholeInCLocale(const char* text);

}  // namespace ORVEL::UTILS
