// The two energy followers, each computed anew from the whole past instead of from running sums.
#pragma once

#include <algorithm>
#include <cmath>
#include <numeric>

#include "tests/reference/fourier.h"

namespace orvel_test {

inline double meanSquare(const Signal& frame) {
  return std::inner_product(frame.begin(), frame.end(), frame.begin(), 0.0) /
         static_cast<double>(frame.size());
}

inline double sumOfLast(const Signal& values, size_t count) {
  return std::accumulate(values.end() - static_cast<long>(std::min(count, values.size())),
                         values.end(), 0.0);
}

// Mean energy of loud frames; loud while the mean of the last `window` frames is high enough.
class LoudMean {
 public:
  LoudMean(size_t window, size_t keep, double reference, double initial)
      : window_(window), keep_(keep), reference_(reference), loud_{initial} {}
  double update(const Signal& frame) {
    all_.push_back(meanSquare(frame));
    if (sumOfLast(all_, window_) / static_cast<double>(window_) >= reference_) {
      loud_.push_back(all_.back());
    }
    return sumOfLast(loud_, keep_) / static_cast<double>(std::min(keep_, loud_.size()));
  }

 private:
  size_t window_, keep_;
  double reference_;
  Signal all_, loud_;
};

// Gate factor; a frame is loud by its own energy, and quiet ones far below the loud mean are cut.
class Gate {
 public:
  Gate(size_t keep, double reference) : keep_(keep), reference_(reference) {}
  double measure(const Signal& frame) {
    constexpr size_t kWindow = 10;
    all_.push_back(meanSquare(frame));
    const double recent = sumOfLast(all_, kWindow) / kWindow;
    if (all_.back() / kWindow >= reference_) loud_.push_back(all_.back());
    if (loud_.empty()) return 1.0;
    const double loud =
        sumOfLast(loud_, keep_) / static_cast<double>(std::min(keep_, loud_.size()));
    const double low = loud / 80.0, high = loud / 15.0;
    return std::pow(std::clamp((recent - low) / (high - low), 0.0, 1.0), 2);
  }

 private:
  size_t keep_;
  double reference_;
  Signal all_, loud_;
};

}  // namespace orvel_test
