#include "utils/c_numbers.h"

#include <locale.h>
#include <stdlib.h>
#if defined(__APPLE__)
#include <xlocale.h>
#endif

namespace ORVEL::UTILS {

namespace {

locale_t cLocale() {
  // The C locale is built into the C library: it needs no locale data.
  static const locale_t locale = newlocale(LC_ALL_MASK, "C", nullptr);
  return locale;
}

}  // namespace

double realNumberIn(const char* text) { return strtod_l(text, nullptr, cLocale()); }
long long wholeNumberIn(const char* text) { return strtoll_l(text, nullptr, 10, cLocale()); }

}  // namespace ORVEL::UTILS
