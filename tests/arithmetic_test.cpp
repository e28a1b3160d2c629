// The arithmetic against long double: every set of kernels that the processor runs, and what the library
// was built with.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <limits>
#include <numbers>
#include <random>

#include "utils/arithmetic.h"
#include "utils/fft.h"
#include "utils/kernels/kernel_sets.h"
#include "utils/orvel_exception.h"

namespace orvel_test {
namespace {

using namespace ORVEL::UTILS;
using Floats = std::vector<float>;

Floats random(std::size_t count, float level, unsigned seed = 1) {
  std::mt19937 engine(seed);
  std::uniform_real_distribution<float> value(-level, level);
  Floats values(count);
  for (float& v : values)
    v = value(engine);
  return values;
}

// Calls `body` with each set in use, the library's own choice last.
template <class Body>
void withEverySet(Body body) {
  int sets = 0;
  for (const Kernels* const* set = runnableKernels(); *set != nullptr; ++set, ++sets) {
    SCOPED_TRACE((*set)->name);
    useKernels(**set);
    body();
  }
  useKernels(**runnableKernels());
  EXPECT_GE(sets, 1);
}

// Steps of a float between two numbers of one sign; numbers that compare equal, and NaN twice, give 0.
double steps(float got, long double expected) {
  const auto rounded = static_cast<float>(expected);
  if (got == rounded || (std::isnan(got) && std::isnan(rounded))) return 0.0;
  const float ulp = std::nextafter(std::abs(rounded), INFINITY) - std::abs(rounded);
  return static_cast<double>(std::abs(got - expected) / ulp);
}

constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

struct Function {
  const char* name;
  void (*run)(const float* x, float* y, std::size_t count);
  long double (*expected)(long double x);
};

// Every length of the rest behind whole vectors, and every edge at every place of a vector.
TEST(Arithmetic, FunctionsAreExactToTheLastStepOfAFloat) {
  const Function functions[] = {
      {"logistic", logistic, [](long double x) { return 1.0L / (1.0L + std::exp(-x)); }},
      {"ln", [](const float* x, float* y, std::size_t n) { logarithms(x, 1.0, 0.0, y, n); },
       [](long double x) { return std::log(x); }},
      {"ln of a feature",
       [](const float* x, float* y, std::size_t n) { logarithms(x, 7.5, 1000.0, y, n); },
       [](long double x) { return std::log(7.5L * x + 1000.0L); }},
      {"e^x",
       [](const float* x, float* y, std::size_t n) {
         std::vector<double> wide(n);
         exponentials(x, 20.0, -1.0, wide.data(), n);
         for (std::size_t i = 0; i < n; ++i)
           y[i] = static_cast<float>(wide[i]);
       },
       [](long double x) { return std::exp(20.0L * x - 1.0L); }},
      {"root", squareRoots, [](long double x) { return std::sqrt(x); }},
  };
  Floats inputs = random(700, 4.0F);
  for (const float scale : {1e-30F, 1e-8F, 1e-3F, 30.0F, 1e5F, 1e12F, 1e30F})
    for (const float value : random(40, scale))
      inputs.push_back(value);
  for (int turn = 0; turn < 17; ++turn)
    inputs.insert(inputs.end(), {0.0F, -0.0F, 1.0F, -1.0F, kInf, -kInf, kNan, 1e-40F, -1e-40F,
                                 88.8F, -103.9F, -110.0F, std::numeric_limits<float>::max(),
                                 std::numeric_limits<float>::min(), 1.0F + 1e-7F});
  withEverySet([&] {
    for (const Function& function : functions) {
      SCOPED_TRACE(function.name);
      Floats results(inputs.size());
      function.run(inputs.data(), results.data(), inputs.size());
      for (std::size_t i = 0; i < inputs.size(); ++i) {
        const long double expected = function.expected(inputs[i]);
        // Not above 1e-37: a denormal result may have become 0.
        ASSERT_TRUE(steps(results[i], expected) <= 1.0 || std::abs(expected) < 1e-37L)
            << "of " << inputs[i] << ": " << results[i] << " for " << expected;
      }
      for (std::size_t count = 0; count < 40; ++count) {
        Floats piece(count + 1, 123.0F);
        function.run(inputs.data() + count, piece.data(), count);
        for (std::size_t i = 0; i < count; ++i)
          EXPECT_EQ(steps(piece[i], results[count + i]), 0.0) << count << " values, value " << i;
        EXPECT_EQ(piece[count], 123.0F) << "wrote behind " << count << " values";
      }
    }
  });
}

TEST(Arithmetic, ProductsOfMatricesOfEveryShape) {
  const std::size_t widths[] = {1,  3,   15,  16,  17,  48,  63,  64,
                                65, 112, 113, 127, 128, 129, 257, 300};
  withEverySet([&] {
    for (const std::size_t outputs : widths) {
      for (const std::size_t inputs : {1U, 7U, 100U}) {
        const Floats rows = random(inputs * outputs, 1.0F);
        const WeightMatrix matrix(inputs, outputs, AlignedFloats(rows.begin(), rows.end()));
        for (const std::size_t count : {1U, 2U, 5U, 6U, 7U, 13U, 25U}) {
          const std::size_t xStride = inputs + 3;
          const std::size_t yStride = outputs + 2;
          const Floats x = random(count * xStride, 1.0F, 2);
          const Floats bias = random(count * yStride, 1.0F, 3);
          Floats y = bias;
          std::vector<const float*> vectors;
          std::vector<float*> results;
          for (std::size_t v = 0; v < count; ++v) {
            vectors.push_back(&x[v * xStride]);
            results.push_back(&y[v * yStride]);
          }
          matrix.multiplyAdd(count, vectors.data(), results.data());
          for (std::size_t v = 0; v < count; ++v) {
            Floats alone(&bias[v * yStride], &bias[v * yStride] + outputs);
            matrix.multiplyAdd(&x[v * xStride], alone.data());
            for (std::size_t j = 0; j < outputs; ++j) {
              double sum = static_cast<double>(bias[v * yStride + j]);
              for (std::size_t i = 0; i < inputs; ++i)
                sum += static_cast<double>(rows[i * outputs + j] * 1.0) * x[v * xStride + i];
              ASSERT_NEAR(y[v * yStride + j], sum, 2e-5) << outputs << " outputs, vector " << v;
              ASSERT_NEAR(alone[j], sum, 2e-5) << outputs << " outputs, one vector";
            }
            for (std::size_t j = outputs; j < yStride; ++j)
              ASSERT_EQ(y[v * yStride + j], bias[v * yStride + j]) << "wrote behind a result";
          }
        }
      }
    }
  });
}

// The lengths of frames of 30 and 32 ms at 8, 16 and 32 kHz, and others that take every radix.
TEST(Arithmetic, TransformsAndTheirInverse) {
  withEverySet([] {
    for (const unsigned length :
         {2U, 4U, 10U, 18U, 30U, 48U, 240U, 256U, 480U, 512U, 960U, 1024U, 1500U}) {
      SCOPED_TRACE(length);
      const auto fft = createFFT(length);
      const Floats samples = random(length, 1.0F);
      std::vector<std::complex<float>> bins;
      ASSERT_TRUE(fft->forward(samples, bins));
      double worst = 0.0;
      for (unsigned k = 0; k <= length / 2; ++k) {
        std::complex<double> sum = 0.0;
        for (unsigned n = 0; n < length; ++n)
          sum += static_cast<double>(samples[n]) *
                 std::polar(1.0, -2.0 * std::numbers::pi * (k * n % length) / length);
        worst = std::max(worst, std::abs(sum - std::complex<double>(bins[k])));
      }
      EXPECT_LE(worst, 1e-6 * std::sqrt(length));
      Floats back;
      ASSERT_TRUE(fft->backward(bins, back));
      for (unsigned n = 0; n < length; ++n)
        ASSERT_NEAR(back[n], samples[n], 1e-6) << "sample " << n;
    }
  });
}

#if defined(ORVEL_MATH_PORTABLE)
TEST(Arithmetic, RefusesLengthsThatItHasNoTransformFor) {
  for (const unsigned length : {0U, 7U, 14U, 15U, 4096U}) {
    try {
      createFFT(length);
      ADD_FAILURE() << length << " was taken";
    } catch (const ORVEL_Exception& error) {
      EXPECT_NE(std::string(error.message()).find(std::to_string(length) + " samples"),
                std::string::npos)
          << error.message();
    }
  }
}
#endif

}  // namespace
}  // namespace orvel_test
