#include "utils/fft.h"

#include <mkl_dfti.h>

namespace ORVEL::UTILS {

FFT::~FFT() = default;

namespace {

class FFT_MKL final : public FFT {
 public:
  explicit FFT_MKL(unsigned length) : size_(length) {
    DftiCreateDescriptor(&descriptor_, DFTI_SINGLE, DFTI_REAL, 1, static_cast<MKL_LONG>(length));
    DftiSetValue(descriptor_, DFTI_PLACEMENT, DFTI_NOT_INPLACE);
    DftiSetValue(descriptor_, DFTI_BACKWARD_SCALE, 1.0 / static_cast<double>(length));
    DftiCommitDescriptor(descriptor_);
  }

  ~FFT_MKL() override { DftiFreeDescriptor(&descriptor_); }

  // MKL takes its input as a pointer to non-const but leaves it as it is (not-in-place transform).
  bool forward(const float* in, std::size_t /*inCount*/, std::complex<float>* out,
               std::size_t /*outCount*/) override {
    return DftiComputeForward(descriptor_, const_cast<float*>(in), out) == DFTI_NO_ERROR;
  }

  bool forward(const std::vector<float>& in, std::vector<std::complex<float>>& out) override {
    out.resize(size_ / 2 + 1);
    return forward(in.data(), in.size(), out.data(), out.size());
  }

  bool backward(const std::complex<float>* in, std::size_t /*inCount*/, float* out,
                std::size_t /*outCount*/) override {
    return DftiComputeBackward(descriptor_, const_cast<std::complex<float>*>(in), out) ==
           DFTI_NO_ERROR;
  }

  bool backward(const std::vector<std::complex<float>>& in, std::vector<float>& out) override {
    out.resize(size_);
    return backward(in.data(), in.size(), out.data(), out.size());
  }

 private:
  unsigned size_;
  DFTI_DESCRIPTOR_HANDLE descriptor_ = nullptr;
};

}  // namespace

std::shared_ptr<FFT> createFFT(unsigned length) { return std::make_shared<FFT_MKL>(length); }

}  // namespace ORVEL::UTILS
