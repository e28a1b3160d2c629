#include <mkl_dfti.h>
#include <mkl_service.h>

#include <array>
#include <exception>
#include <string>

#include "utils/fft.h"
#include "utils/mkl/mkl_memory.h"

namespace ORVEL::UTILS {

namespace {

class FFT_MKL final : public FFT {
 public:
  explicit FFT_MKL(unsigned length) : size_(length) {
    const MklMemory memory;
    try {
      require(DftiCreateDescriptor(&descriptor_, DFTI_SINGLE, DFTI_REAL, 1,
                                   static_cast<MKL_LONG>(length)));
      require(DftiSetValue(descriptor_, DFTI_PLACEMENT, DFTI_NOT_INPLACE));
      require(DftiSetValue(descriptor_, DFTI_BACKWARD_SCALE, 1.0 / static_cast<double>(length)));
      require(DftiCommitDescriptor(descriptor_));
      require(memory.ranOut() ? DFTI_MEMORY_ERROR : DFTI_NO_ERROR);
    } catch (...) {
      free();
      throw;
    }
  }

  ~FFT_MKL() override { free(); }

  // MKL takes its input as a pointer to non-const but leaves it as it is (not-in-place transform).
  bool forward(const float* in, std::size_t /*inCount*/, std::complex<float>* out,
               std::size_t /*outCount*/) override {
    return DftiComputeForward(descriptor_, const_cast<float*>(in), out) == DFTI_NO_ERROR;
  }

  bool backward(const std::complex<float>* in, std::size_t /*inCount*/, float* out,
                std::size_t /*outCount*/) override {
    return DftiComputeBackward(descriptor_, const_cast<std::complex<float>*>(in), out) ==
           DFTI_NO_ERROR;
  }

 private:
  void require(MKL_LONG status) const {
    if (status != DFTI_NO_ERROR) {
      const std::string reason = status == DFTI_MEMORY_ERROR
                                     ? "out of memory"
                                     : "MKL gives status " + std::to_string(status);
      refuseFFT(size_, reason);
    }
  }

  void free() {
    if (descriptor_ != nullptr) {
      DftiFreeDescriptor(&descriptor_);
    }
  }

  unsigned size_;
  DFTI_DESCRIPTOR_HANDLE descriptor_ = nullptr;
};

// What MKL sets up once for a process, it sets up while the library is loaded, where memory that runs out
// leaves nothing half done. With MKL_VERBOSE in the environment it would print from frames.
[[maybe_unused]] const bool isReady = [] {
  redirectMklMemory();
  mkl_verbose(0);
  try {
    constexpr std::size_t kLength = 64;
    std::array<float, kLength> samples{};
    std::array<std::complex<float>, kLength / 2 + 1> bins{};
    FFT_MKL transform(kLength);
    return transform.forward(samples.data(), samples.size(), bins.data(), bins.size()) &&
           transform.backward(bins.data(), bins.size(), samples.data(), samples.size());
  } catch (const std::exception&) {
    return false;
  }
}();

}  // namespace

std::shared_ptr<FFT> createFFT(unsigned length) { return std::make_shared<FFT_MKL>(length); }

}  // namespace ORVEL::UTILS
