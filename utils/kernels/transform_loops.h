#pragma once

#include "utils/kernels/kernels.h"
#include "utils/kernels/vectors.h"

/**
 * The loops of a real transform: a complex one of half the length, by stages of radix 4, 2, 3 and 5 that
 * leave their results in order (Stockham), with real and imaginary parts apart.
 */
namespace ORVEL::UTILS {

namespace {

template <class T>
struct Complex {
  T re;
  T im;
};

template <class T>
ORVEL_INLINE Complex<T> operator+(Complex<T> a, Complex<T> b) {
  return {a.re + b.re, a.im + b.im};
}
template <class T>
ORVEL_INLINE Complex<T> operator-(Complex<T> a, Complex<T> b) {
  return {a.re - b.re, a.im - b.im};
}
template <class T>
ORVEL_INLINE Complex<T> operator*(Complex<T> a, float factor) {
  return {a.re * factor, a.im * factor};
}
template <class T, class Factor>
ORVEL_INLINE Complex<T> times(Complex<T> a, Factor re, Factor im) {
  return {a.re * re - a.im * im, a.re * im + a.im * re};
}
template <class T>
ORVEL_INLINE Complex<T> timesMinusI(Complex<T> a) {
  return {a.im, -a.re};
}

// Transforms of R values.
template <class T>
ORVEL_INLINE void butterfly(Complex<T> (&a)[2]) {
  const Complex<T> sum = a[0] + a[1];
  a[1] = a[0] - a[1];
  a[0] = sum;
}
template <class T>
ORVEL_INLINE void butterfly(Complex<T> (&a)[3]) {
  constexpr float kSine = 0.86602540378443864676F;
  const Complex<T> sum = a[1] + a[2];
  const Complex<T> turned = timesMinusI(a[1] - a[2]) * kSine;
  const Complex<T> middle = a[0] - sum * 0.5F;
  a[0] = a[0] + sum;
  a[1] = middle + turned;
  a[2] = middle - turned;
}
template <class T>
ORVEL_INLINE void butterfly(Complex<T> (&a)[4]) {
  const Complex<T> even = a[0] + a[2];
  const Complex<T> evenDifference = a[0] - a[2];
  const Complex<T> odd = a[1] + a[3];
  const Complex<T> turned = timesMinusI(a[1] - a[3]);
  a[0] = even + odd;
  a[1] = evenDifference + turned;
  a[2] = even - odd;
  a[3] = evenDifference - turned;
}
template <class T>
ORVEL_INLINE void butterfly(Complex<T> (&a)[5]) {
  constexpr float kCosine1 = 0.30901699437494742410F;
  constexpr float kCosine2 = -0.80901699437494742410F;
  constexpr float kSine1 = 0.95105651629515357212F;
  constexpr float kSine2 = 0.58778525229247312917F;
  const Complex<T> sum1 = a[1] + a[4];
  const Complex<T> sum2 = a[2] + a[3];
  const Complex<T> difference1 = timesMinusI(a[1] - a[4]);
  const Complex<T> difference2 = timesMinusI(a[2] - a[3]);
  const Complex<T> middle1 = a[0] + sum1 * kCosine1 + sum2 * kCosine2;
  const Complex<T> middle2 = a[0] + sum1 * kCosine2 + sum2 * kCosine1;
  const Complex<T> turned1 = difference1 * kSine1 + difference2 * kSine2;
  const Complex<T> turned2 = difference1 * kSine2 - difference2 * kSine1;
  a[0] = a[0] + sum1 + sum2;
  a[1] = middle1 + turned1;
  a[2] = middle2 + turned2;
  a[3] = middle2 - turned2;
  a[4] = middle1 - turned1;
}

/** Real and imaginary parts of a signal on its way. */
struct Parts {
  float* re;
  float* im;
};

// One stage: R values, `groups` * `stride` apart, become neighbours `stride` apart, turned by the twiddles
// of their group. T holds as many neighbours as fit.
template <std::size_t R, class T>
ORVEL_INLINE void runStage(const TransformStage& stage, Parts from, Parts to) {
  const std::size_t apart = stage.groups * stage.stride;
  const std::size_t lanes = sizeof(T) / sizeof(float);
  for (std::size_t group = 0; group < stage.groups; ++group) {
    float re[R];
    float im[R];
    for (std::size_t r = 1; r < R; ++r) {
      re[r] = stage.twiddleRe[(r - 1) * stage.groups + group];
      im[r] = stage.twiddleIm[(r - 1) * stage.groups + group];
    }
    for (std::size_t q = 0; q < stage.stride; q += lanes) {
      const std::size_t source = group * stage.stride + q;
      const std::size_t target = group * stage.stride * R + q;
      Complex<T> a[R];
      for (std::size_t j = 0; j < R; ++j) {
        a[j] = {load<T>(from.re + source + j * apart), load<T>(from.im + source + j * apart)};
      }
      butterfly(a);
      for (std::size_t r = 0; r < R; ++r) {
        const Complex<T> turned = r == 0 ? a[0] : times(a[r], re[r], im[r]);
        store(turned.re, to.re + target + r * stage.stride);
        store(turned.im, to.im + target + r * stage.stride);
      }
    }
  }
}

ORVEL_INLINE void storeTransposed(const FourFloats (&rows)[4], float* to) {
  const FourFloats ab = __builtin_shufflevector(rows[0], rows[1], 0, 4, 1, 5);
  const FourFloats cd = __builtin_shufflevector(rows[2], rows[3], 0, 4, 1, 5);
  const FourFloats abHigh = __builtin_shufflevector(rows[0], rows[1], 2, 6, 3, 7);
  const FourFloats cdHigh = __builtin_shufflevector(rows[2], rows[3], 2, 6, 3, 7);
  store(__builtin_shufflevector(ab, cd, 0, 1, 4, 5), to);
  store(__builtin_shufflevector(ab, cd, 2, 3, 6, 7), to + 4);
  store(__builtin_shufflevector(abHigh, cdHigh, 0, 1, 4, 5), to + 8);
  store(__builtin_shufflevector(abHigh, cdHigh, 2, 3, 6, 7), to + 12);
}

// The first stage, with a stride of 1: four groups at a time.
ORVEL_INLINE void runFirstStageOf4(const TransformStage& stage, Parts from, Parts to) {
  for (std::size_t group = 0; group < stage.groups; group += 4) {
    Complex<FourFloats> a[4];
    for (std::size_t j = 0; j < 4; ++j) {
      a[j] = {load<FourFloats>(from.re + group + j * stage.groups),
              load<FourFloats>(from.im + group + j * stage.groups)};
    }
    butterfly(a);
    for (std::size_t r = 1; r < 4; ++r) {
      const std::size_t at = (r - 1) * stage.groups + group;
      a[r] = times(a[r], load<FourFloats>(stage.twiddleRe + at),
                   load<FourFloats>(stage.twiddleIm + at));
    }
    const FourFloats re[4] = {a[0].re, a[1].re, a[2].re, a[3].re};
    const FourFloats im[4] = {a[0].im, a[1].im, a[2].im, a[3].im};
    storeTransposed(re, to.re + 4 * group);
    storeTransposed(im, to.im + 4 * group);
  }
}

template <std::size_t R>
void runStage(const TransformStage& stage, Parts from, Parts to) {
  if (stage.stride % kFloats == 0) {
    runStage<R, Floats>(stage, from, to);
  } else if (stage.stride % 4 == 0) {
    runStage<R, FourFloats>(stage, from, to);
  } else if (R == 4 && stage.stride == 1 && stage.groups % 4 == 0) {
    runFirstStageOf4(stage, from, to);
  } else {
    runStage<R, float>(stage, from, to);
  }
}

// Gives where the result lies: in `a` or in `b`.
Parts transformComplex(const TransformPlan& plan, Parts a, Parts b) {
  for (std::size_t i = 0; i < plan.stageCount; ++i) {
    const TransformStage& stage = plan.stages[i];
    switch (stage.radix) {
      case 2:
        runStage<2>(stage, a, b);
        break;
      case 3:
        runStage<3>(stage, a, b);
        break;
      case 4:
        runStage<4>(stage, a, b);
        break;
      default:
        runStage<5>(stage, a, b);
    }
    const Parts swapped = a;
    a = b;
    b = swapped;
  }
  return a;
}

/** A transform's values on their way, on the stack: threads share transforms. */
struct Workspace {
  alignas(64) float values[4][kMostTransform / 2 + kFloats];
  Parts first() { return {values[0], values[1]}; }
  Parts second() { return {values[2], values[3]}; }
};

void transformForward(const TransformPlan& plan, const float* in, float* out) {
  const std::size_t half = plan.half;
  Workspace workspace;
  const Parts a = workspace.first();
  for (std::size_t n = 0; n < half; ++n) {
    a.re[n] = in[2 * n];
    a.im[n] = in[2 * n + 1];
  }
  const Parts z = transformComplex(plan, a, workspace.second());
  out[0] = z.re[0] + z.im[0];
  out[1] = 0.0F;
  out[2 * half] = z.re[0] - z.im[0];
  out[2 * half + 1] = 0.0F;
  for (std::size_t k = 1; k < half; ++k) {
    const float evenRe = 0.5F * (z.re[k] + z.re[half - k]);
    const float evenIm = 0.5F * (z.im[k] - z.im[half - k]);
    const float oddRe = 0.5F * (z.im[k] + z.im[half - k]);
    const float oddIm = 0.5F * (z.re[half - k] - z.re[k]);
    out[2 * k] = evenRe + (oddRe * plan.turnRe[k] - oddIm * plan.turnIm[k]);
    out[2 * k + 1] = evenIm + (oddRe * plan.turnIm[k] + oddIm * plan.turnRe[k]);
  }
}

// The transform with real and imaginary parts in each other's place is the inverse one.
void transformBackward(const TransformPlan& plan, const float* in, float* out) {
  const std::size_t half = plan.half;
  Workspace workspace;
  const Parts a = workspace.first();
  const Parts b = workspace.second();
  for (std::size_t k = 0; k <= half; ++k) {
    b.re[k] = in[2 * k];
    b.im[k] = in[2 * k + 1];
  }
  const float scale = 0.5F / static_cast<float>(half);
  a.re[0] = scale * (b.re[0] - b.re[half]);
  a.im[0] = scale * (b.re[0] + b.re[half]);
  for (std::size_t k = 1; k < half; ++k) {
    const float evenRe = b.re[k] + b.re[half - k];
    const float evenIm = b.im[k] - b.im[half - k];
    const float differenceRe = b.re[k] - b.re[half - k];
    const float differenceIm = b.im[k] + b.im[half - k];
    const float oddRe = differenceRe * plan.turnRe[k] + differenceIm * plan.turnIm[k];
    const float oddIm = differenceIm * plan.turnRe[k] - differenceRe * plan.turnIm[k];
    a.im[k] = scale * (evenRe - oddIm);
    a.re[k] = scale * (evenIm + oddRe);
  }
  const Parts z = transformComplex(plan, a, b);
  for (std::size_t n = 0; n < half; ++n) {
    out[2 * n] = z.im[n];
    out[2 * n + 1] = z.re[n];
  }
}

}  // namespace

}  // namespace ORVEL::UTILS
