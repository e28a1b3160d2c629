#include "utils/fft.h"

#include "utils/orvel_exception.h"

namespace ORVEL::UTILS {

FFT::~FFT() = default;

void refuseFFT(unsigned length, const std::string& reason) {
  const std::string message =
      "the transform of " + std::to_string(length) + " samples cannot be prepared: " + reason;
  throw ORVEL_Exception(message.c_str(), "utils/fft", 0, "createFFT");
}

}  // namespace ORVEL::UTILS
