// The three frame windows from their closed forms.
#pragma once

#include <cmath>

#include "tests/reference/fourier.h"

namespace orvel_test {

inline Signal triangle(int n) {
  Signal w(n);
  const int half = n / 2;
  for (int i = 0; i < 2 * half; ++i)
    w[i] = i < half ? 2.0 * i / n : 1.0 - 2.0 * (i - half) / n;
  return w;
}

inline Signal hamming(int n) {
  Signal w(n);
  for (int i = 0; i < n; ++i)
    w[i] = 0.54 - 0.46 * std::cos(2.0 * M_PI * i / (n - 1));
  return w;
}

inline Signal vorbis(int n) {
  Signal w(n);
  for (int i = 0; i < n; ++i)
    w[i] = std::sin(M_PI_2 * std::pow(std::sin(M_PI * i / n), 2));
  return w;
}

}  // namespace orvel_test
