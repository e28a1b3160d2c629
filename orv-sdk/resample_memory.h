#pragma once

#include <memory>

namespace ORVEL {

/** Closes a libresample handle. */
struct CloseResampler {
  void operator()(void* handle) const;
};

using ResamplerHandle = std::unique_ptr<void, CloseResampler>;

/**
 * A resampler of high quality for exactly this factor (output rate / input rate), and a copy of one.
 *
 * libresample does not check what malloc gives. Its calls of malloc and free therefore come here
 * (cmake/OrvelResample.cmake); what fails is left by a jump out of libresample, with its memory given back.
 *
 * @throws std::bad_alloc
 */
ResamplerHandle openResampler(double factor);
ResamplerHandle copyResampler(const ResamplerHandle& original);

}  // namespace ORVEL
