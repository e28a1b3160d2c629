#include <cmath>
#include <numbers>

#include "utils/fft.h"
#include "utils/kernels/kernel_sets.h"

namespace ORVEL::UTILS {

namespace {

std::vector<std::size_t> radicesOf(unsigned length) {
  std::vector<std::size_t> radices;
  std::size_t rest = length / 2;
  // Radix 4 first: the later stages then have neighbours enough for whole vectors.
  for (const std::size_t radix : {4U, 2U, 3U, 5U}) {
    while (rest > 0 && rest % radix == 0) {
      radices.push_back(radix);
      rest /= radix;
    }
  }
  if (rest != 1 || length % 2 != 0 || length > kMostTransform) {
    refuseFFT(length, "an even length of at most " + std::to_string(kMostTransform) +
                          " without other prime factors than 2, 3 and 5 is needed");
  }
  return radices;
}

class FFT_Portable final : public FFT {
 public:
  explicit FFT_Portable(unsigned length) {
    const std::size_t half = length / 2;
    const std::vector<std::size_t> radices = radicesOf(length);
    // First the numbers, then what points to them.
    std::vector<std::size_t> begins;
    std::size_t groups = half;
    for (const std::size_t radix : radices) {
      begins.push_back(re_.size());
      groups /= radix;
      for (std::size_t r = 1; r < radix; ++r) {
        for (std::size_t group = 0; group < groups; ++group) {
          addTurn(r * group, radix * groups);
        }
      }
    }
    begins.push_back(re_.size());
    for (std::size_t k = 0; k < half; ++k) {
      addTurn(k, 2 * half);
    }
    groups = half;
    std::size_t stride = 1;
    for (std::size_t i = 0; i < radices.size(); ++i) {
      groups /= radices[i];
      stages_.push_back({radices[i], groups, stride, &re_[begins[i]], &im_[begins[i]]});
      stride *= radices[i];
    }
    plan_ = {half, stages_.data(), stages_.size(), &re_[begins.back()], &im_[begins.back()]};
  }

  bool forward(const float* in, std::size_t /*inCount*/, std::complex<float>* out,
               std::size_t /*outCount*/) override {
    kernels().forward(plan_, in, reinterpret_cast<float*>(out));
    return true;
  }

  bool backward(const std::complex<float>* in, std::size_t /*inCount*/, float* out,
                std::size_t /*outCount*/) override {
    kernels().backward(plan_, reinterpret_cast<const float*>(in), out);
    return true;
  }

 private:
  // e^(-2 pi i part / whole)
  void addTurn(std::size_t part, std::size_t whole) {
    const double angle =
        -2.0 * std::numbers::pi * static_cast<double>(part) / static_cast<double>(whole);
    re_.push_back(static_cast<float>(std::cos(angle)));
    im_.push_back(static_cast<float>(std::sin(angle)));
  }

  std::vector<float> re_;
  std::vector<float> im_;
  std::vector<TransformStage> stages_;
  TransformPlan plan_{};
};

}  // namespace

std::shared_ptr<FFT> createFFT(unsigned length) { return std::make_shared<FFT_Portable>(length); }

}  // namespace ORVEL::UTILS
