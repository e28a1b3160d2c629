#include "utils/c_locale_number.h"

#include <locale.h>
#include <stdlib.h>

namespace ORVEL::UTILS {

namespace {

#if defined(_WIN32)
using Locale = _locale_t;
Locale makeCLocale() { return _create_locale(LC_ALL, "C"); }
double toReal(const char* text, Locale locale) { return _strtod_l(text, nullptr, locale); }
long toWhole(const char* text, Locale locale) { return _strtol_l(text, nullptr, 10, locale); }
#else
using Locale = locale_t;
// The C locale is built into the C library: it needs no locale data.
Locale makeCLocale() { return newlocale(LC_ALL_MASK, "C", nullptr); }
double toReal(const char* text, Locale locale) { return strtod_l(text, nullptr, locale); }
long toWhole(const char* text, Locale locale) { return strtol_l(text, nullptr, 10, locale); }
#endif

Locale cLocale() {
  static const Locale locale = makeCLocale();
  return locale;
}

}  // namespace

double readRealInCLocale(const char* text) { return toReal(text, cLocale()); }
long readWholeInCLocale(const char* text) { return toWhole(text, cLocale()); }

}  // namespace ORVEL::UTILS
