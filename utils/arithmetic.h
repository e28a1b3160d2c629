#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <vector>

/**
 * The cleaners' arithmetic on whole vectors. One of two implementations is built (ORVEL_MATH): Intel MKL
 * in utils/mkl/, or utils/portable/, which runs on any processor. The transforms are in utils/fft.h.
 *
 * Every function here is real-time safe and may be called from any thread. Numbers out of range give what
 * the scalar functions give: ln of a negative number is NaN, e^1000 is infinite. A result may replace an
 * argument of the same type.
 */
namespace ORVEL::UTILS {

/** y = a * b, element by element. */
void multiply(const float* a, const float* b, float* y, std::size_t count);

/** y = a - b. */
void subtract(const float* a, const float* b, float* y, std::size_t count);

void squareRoots(const float* x, float* y, std::size_t count);

/** y = e^(scale * x + offset), in double precision. */
void exponentials(const float* x, double scale, double offset, double* y, std::size_t count);

/** y = ln(scale * x + offset), in double precision before it is rounded. */
void logarithms(const float* x, double scale, double offset, float* y, std::size_t count);

/** y = 1 / (1 + e^-x), in double precision before it is rounded. */
void logistic(const float* x, float* y, std::size_t count);

/** Starts an array on a cache line, wherever the heap would put it. */
template <class T>
struct CacheLineAllocator {
  using value_type = T;
  static constexpr std::align_val_t kAlignment{64};

  CacheLineAllocator() = default;
  template <class Other>
  explicit CacheLineAllocator(const CacheLineAllocator<Other>& /*other*/) {}
  T* allocate(std::size_t count) {
    return static_cast<T*>(::operator new(count * sizeof(T), kAlignment));
  }
  void deallocate(T* values, std::size_t /*count*/) { ::operator delete(values, kAlignment); }
  bool operator==(const CacheLineAllocator&) const = default;
};

using AlignedFloats = std::vector<float, CacheLineAllocator<float>>;

/** A matrix in the order in which the products read it fastest. Immutable: threads may share it. */
class WeightMatrix {
 public:
  /** @param rows `inputs` rows of `outputs` values. */
  WeightMatrix(std::size_t inputs, std::size_t outputs, AlignedFloats rows);

  std::size_t inputs() const { return inputs_; }
  std::size_t outputs() const { return outputs_; }

  /** y += W^T x, with inputs() and outputs() values. */
  void multiplyAdd(const float* x, float* y) const;

  /**
   * The same for `count` vectors at once, wherever they lie: y[i] += W^T x[i]. The values agree with those
   * one by one within rounding.
   */
  void multiplyAdd(std::size_t count, const float* const* x, float* const* y) const;

 private:
  std::size_t inputs_;
  std::size_t outputs_;
  AlignedFloats values_;
};

/** Whether none of the values is infinite or NaN. Without a branch, so that it is vectorised. */
inline bool allFinite(const float* values, std::size_t count) {
  constexpr std::uint32_t kExponent = 0x7F800000U;
  std::uint32_t infinite = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint32_t bits = __builtin_bit_cast(std::uint32_t, values[i]) & kExponent;
    infinite |= static_cast<std::uint32_t>(bits == kExponent);
  }
  return infinite == 0;
}

}  // namespace ORVEL::UTILS
