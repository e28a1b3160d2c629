#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace ORVEL::UTILS {

/**
 * A queue of samples that lie contiguously in a vector of fixed capacity: appending past the end first
 * moves the live samples to the front. Allocates only at construction. The caller keeps the live
 * samples plus what it appends within the capacity.
 */
class SlidingBuffer {
 public:
  explicit SlidingBuffer(std::size_t capacity) : values_(capacity, 0.0F) {}

  std::size_t size() const { return write_ - read_; }
  float* data() { return values_.data() + read_; }
  const float* data() const { return values_.data() + read_; }

  /** Room for `count` more samples behind the live ones; their content is undefined. */
  float* extend(std::size_t count) {
    if (write_ + count > values_.size()) {
      std::copy(values_.begin() + static_cast<std::ptrdiff_t>(read_),
                values_.begin() + static_cast<std::ptrdiff_t>(write_), values_.begin());
      write_ -= read_;
      read_ = 0;
    }
    float* room = values_.data() + write_;
    write_ += count;
    return room;
  }

  void append(const float* samples, std::size_t count) {
    std::copy(samples, samples + count, extend(count));
  }

  void appendZeros(std::size_t count) {
    float* room = extend(count);
    std::fill(room, room + count, 0.0F);
  }

  /** Drops all samples; the next ones lie where those of a new buffer would. */
  void clear() { read_ = write_ = 0; }

  /** Drops the `count` oldest samples. */
  void advance(std::size_t count) { read_ += count; }

 private:
  std::vector<float> values_;
  std::size_t read_ = 0;
  std::size_t write_ = 0;
};

}  // namespace ORVEL::UTILS
