#pragma once

#include <cstddef>
#include <vector>

namespace ORVEL::UTILS {

/** A first-in first-out queue of energies within a capacity fixed at construction; never allocates after. */
class EnergyQueue {
 public:
  EnergyQueue(std::size_t capacity, std::size_t initialCount, double initialValue)
      : values_(capacity < 1 ? 1 : capacity, initialValue), count_(initialCount) {}

  std::size_t size() const { return count_; }

  /** Appends a value; the queue must be below its capacity. */
  void push(double value) {
    values_[wrap(front_ + count_)] = value;
    ++count_;
  }

  /** Replaces the oldest value by a new newest one and gives the oldest. */
  double exchange(double value) {
    const double oldest = values_[front_];
    front_ = wrap(front_ + 1);
    --count_;
    push(value);
    return oldest;
  }

 private:
  std::size_t wrap(std::size_t index) const {
    return index >= values_.size() ? index - values_.size() : index;
  }

  std::vector<double> values_;
  std::size_t front_ = 0;
  std::size_t count_;
};

}  // namespace ORVEL::UTILS
