#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

/** What follows the level of a stream frame by frame. */
namespace ORVEL::UTILS {

/** Mean of the squared samples, accumulated in double precision. */
double frameEnergy(const float* samples, std::size_t count);

/** A first-in first-out queue of energies within a capacity fixed at construction; never allocates after. */
class EnergyQueue {
 public:
  EnergyQueue(std::size_t capacity, std::size_t initialCount, double initialValue)
      : values_(capacity < 1 ? 1 : capacity, initialValue), count_(initialCount) {}

  /** Back to a queue of `count` such values. */
  void reset(std::size_t count, double value) {
    std::fill(values_.begin(), values_.end(), value);
    front_ = 0;
    count_ = count;
  }

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

/**
 * Follows the level of the louder frames of a stream: the mean energy of the frames during which the
 * short-term mean energy was at or above a reference. Not thread-safe; `update` allocates nothing.
 */
class MeanEnergy {
 public:
  /**
   * @param shortLength frames of the short-term mean, at least 1.
   * @param longLength most loud frames remembered, at least 1.
   * @param reference energy per sample from which the short-term mean counts as loud.
   * @param initialEnergy first entry of the record of loud frames.
   */
  MeanEnergy(std::uint32_t shortLength, std::uint32_t longLength, float reference,
             float initialEnergy);

  /** Takes one frame of `count` samples and gives the mean energy per sample of the loud frames. */
  float update(const float* samples, std::size_t count);

  /** Back to the state of a new tracker; allocates nothing. */
  void reset();

 private:
  std::uint32_t shortLength_;
  std::uint32_t longLength_;
  double reference_;
  double initialEnergy_;
  EnergyQueue shortQueue_;
  EnergyQueue longQueue_;
  double shortSum_ = 0.0;
  double longSum_;
};

/**
 * Energy gate: a factor in [0, 1] that falls to 0 when the recent level is far below that of the loud
 * frames seen so far. Unlike MeanEnergy, a frame counts as loud by its own energy, not by a short-term
 * mean. Not thread-safe; allocates nothing after construction.
 */
class EnThreshold {
 public:
  /** Lengths in frames, both at least 1; `reference` is the energy share from which a frame is loud. */
  EnThreshold(std::uint32_t shortLength, std::uint32_t longLength, double reference);

  /** Takes one windowed frame of `count` samples and updates the factor. */
  void measure(const float* samples, std::size_t count);

  /** Scales `count` gains by the factor. */
  void apply(float* gains, std::size_t count) const;

  /** Back to the state of a new gate; allocates nothing. */
  void reset();

  double factor() const { return factor_; }

 private:
  std::uint32_t shortLength_;
  std::uint32_t longLength_;
  double reference_;
  EnergyQueue shortQueue_;
  EnergyQueue longQueue_;
  double shortSum_ = 0.0;
  double longSum_ = 0.0;
  std::uint32_t loudCount_ = 0;
  double factor_ = 1.0;
};

}  // namespace ORVEL::UTILS
