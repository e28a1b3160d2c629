#include "tests/reference/fourier.h"

#include <cmath>
#include <map>

namespace orvel_test {
namespace {

constexpr double kTwoPi = 6.283185307179586476925;

// The n-th roots of unity, computed once per length.
const Spectrum& roots(size_t n) {
  static std::map<size_t, Spectrum> known;
  Spectrum& turns = known[n];
  for (size_t k = turns.size(); k < n; ++k) {
    turns.push_back(std::polar(1.0, -kTwoPi * static_cast<double>(k) / static_cast<double>(n)));
  }
  return turns;
}

// Splits even lengths in halves and sums the odd remainder directly.
Spectrum transform(const Spectrum& in) {
  const size_t n = in.size();
  Spectrum out(n);
  const Spectrum& turns = roots(n);
  if (n % 2 != 0) {
    for (size_t k = 0; k < n; ++k) {
      for (size_t i = 0; i < n; ++i) {
        out[k] += in[i] * turns[i * k % n];
      }
    }
    return out;
  }
  Spectrum even(n / 2), odd(n / 2);
  for (size_t i = 0; i < n / 2; ++i) {
    even[i] = in[2 * i];
    odd[i] = in[2 * i + 1];
  }
  even = transform(even);
  odd = transform(odd);
  for (size_t k = 0; k < n / 2; ++k) {
    const auto turned = odd[k] * turns[k];
    out[k] = even[k] + turned;
    out[k + n / 2] = even[k] - turned;
  }
  return out;
}

}  // namespace

Spectrum forwardReal(const Signal& frame) {
  Spectrum full = transform(Spectrum(frame.begin(), frame.end()));
  full.resize(frame.size() / 2 + 1);
  return full;
}

Signal backwardReal(const Spectrum& half, size_t frameLen) {
  // The inverse of a conjugate-symmetric spectrum is the conjugated forward transform.
  Spectrum full(frameLen);
  for (size_t k = 0; k < frameLen; ++k) {
    full[k] = k < half.size() ? std::conj(half[k]) : half[frameLen - k];
  }
  full[0] = full[0].real();
  full[frameLen / 2] = full[frameLen / 2].real();
  full = transform(full);
  Signal frame(frameLen);
  for (size_t i = 0; i < frameLen; ++i)
    frame[i] = full[i].real() / static_cast<double>(frameLen);
  return frame;
}

}  // namespace orvel_test
