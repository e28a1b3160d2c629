#include "tests/reference/signal.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <numeric>

namespace orvel_test {
namespace {

// The n-th roots of unity, computed once per length.
const Spectrum& roots(size_t n) {
  static std::map<size_t, Spectrum> known;
  Spectrum& turns = known[n];
  for (size_t k = turns.size(); k < n; ++k)
    turns.push_back(std::polar(1.0, -2.0 * M_PI * static_cast<double>(k) / static_cast<double>(n)));
  return turns;
}

// Halves even lengths and sums the odd remainder directly.
Spectrum transform(const Spectrum& in) {
  const size_t n = in.size(), parts = n % 2 == 0 ? 2 : n;
  if (n == 1) return in;
  const Spectrum& turns = roots(n);
  Spectrum out(n);
  for (size_t first = 0; first < parts; ++first) {
    Spectrum part;
    for (size_t i = first; i < n; i += parts)
      part.push_back(in[i]);
    part = transform(part);
    for (size_t k = 0; k < n; ++k)
      out[k] += part[k % part.size()] * turns[first * k % n];
  }
  return out;
}

template <class Shape>
Signal window(int n, const Shape& shape) {
  Signal w(n);
  for (int i = 0; i < n; ++i)
    w[i] = shape(i);
  return w;
}

constexpr size_t kWindow = 10;

double sumOfLast(const Signal& values, size_t count) {
  return std::accumulate(values.end() - static_cast<long>(std::min(count, values.size())),
                         values.end(), 0.0);
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
  for (size_t k = 0; k < frameLen; ++k)
    full[k] = k < half.size() ? std::conj(half[k]) : half[frameLen - k];
  for (const size_t real : {size_t{0}, frameLen / 2})
    full[real] = full[real].real();
  Signal frame;
  for (const auto& value : transform(full))
    frame.push_back(value.real() / static_cast<double>(frameLen));
  return frame;
}

Signal triangle(int n) {
  return window(n, [&](int i) { return i < n / 2 ? 2.0 * i / n : 2.0 - 2.0 * i / n; });
}
Signal hamming(int n) {
  return window(n, [&](int i) { return 0.54 - 0.46 * std::cos(2.0 * M_PI * i / (n - 1)); });
}
Signal vorbis(int n) {
  return window(n, [&](int i) { return std::sin(M_PI_2 * std::pow(std::sin(M_PI * i / n), 2)); });
}

Signal multiplied(Signal x, const Signal& w) {
  std::transform(x.begin(), x.end(), w.begin(), x.begin(), std::multiplies());
  return x;
}

double meanSquare(const Signal& frame) {
  return std::inner_product(frame.begin(), frame.end(), frame.begin(), 0.0) /
         static_cast<double>(frame.size());
}

double Energies::recent(const Signal& frame) {
  all_.push_back(meanSquare(frame));
  return sumOfLast(all_, kWindow) / kWindow;
}

double Energies::mean() const {
  return sumOfLast(loud_, keep_) / static_cast<double>(std::min(keep_, loud_.size()));
}

double Energies::loudMean(const Signal& frame) {
  if (recent(frame) >= reference_) loud_.push_back(all_.back());
  return mean();
}

double Energies::gate(const Signal& frame) {
  const double now = recent(frame);
  if (all_.back() / kWindow >= reference_) loud_.push_back(all_.back());
  if (loud_.empty()) return 1.0;
  const double low = mean() / 80.0, high = mean() / 15.0;
  return std::pow(std::clamp((now - low) / (high - low), 0.0, 1.0), 2);
}

}  // namespace orvel_test
