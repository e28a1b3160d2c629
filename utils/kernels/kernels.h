#pragma once

#include <cstddef>

/**
 * The loops that arithmetic is made of, compiled once for each instruction set. This header and
 * kernels.cpp use no template or inline function of the C++ library: of such, the linker keeps one copy,
 * which might be one for a processor that is not there.
 */
namespace ORVEL::UTILS {

/**
 * A matrix is taken in panels of so many outputs, whole units each. What is behind the last output is read
 * and its result dropped.
 */
inline constexpr std::size_t kUnit = 16;
inline constexpr std::size_t kPanel = 64;
inline constexpr std::size_t kMostPanel = 112;

/** Width of the next panel when so many outputs are left: the last one takes what would be a narrow rest. */
constexpr std::size_t panelWidth(std::size_t outputsLeft) {
  const std::size_t filled = (outputsLeft + kUnit - 1) / kUnit * kUnit;
  return filled <= kMostPanel ? filled : kPanel;
}

/** Longest real transform. */
inline constexpr std::size_t kMostTransform = 2048;

struct TransformStage {
  std::size_t radix;
  /** Groups of `radix` values that share their twiddles, and neighbours with the same ones. */
  std::size_t groups;
  std::size_t stride;
  /** e^(-2 pi i r g / (radix * groups)), for each r from 1 on and each group g. */
  const float* twiddleRe;
  const float* twiddleIm;
};

/** A real transform of 2 * half values. */
struct TransformPlan {
  std::size_t half;
  const TransformStage* stages;
  std::size_t stageCount;
  /** e^(-pi i k / half) for k below half. */
  const float* turnRe;
  const float* turnIm;
};

struct Kernels {
  const char* name;
  void (*multiply)(const float* a, const float* b, float* y, std::size_t count);
  void (*subtract)(const float* a, const float* b, float* y, std::size_t count);
  void (*squareRoots)(const float* x, float* y, std::size_t count);
  void (*exponentials)(const float* x, double scale, double offset, double* y, std::size_t count);
  void (*logarithms)(const float* x, double scale, double offset, float* y, std::size_t count);
  void (*logistic)(const float* x, float* y, std::size_t count);
  /**
   * y += W^T x for one panel: `inputs` rows, `stride` values apart, of `width` values; x of `inputs` and y
   * of `width` values, which begin `offset` values into each of the `count` results.
   */
  void (*multiplyAdd)(const float* panel, std::size_t stride, std::size_t width, std::size_t inputs,
                      std::size_t count, const float* const* x, float* const* y,
                      std::size_t offset);
  /** `in` has 2 * half samples, `out` half + 1 bins, real and imaginary parts in turn. */
  void (*forward)(const TransformPlan& plan, const float* in, float* out);
  /** The other way, divided by 2 * half. */
  void (*backward)(const TransformPlan& plan, const float* in, float* out);
};

}  // namespace ORVEL::UTILS
