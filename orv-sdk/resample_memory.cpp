#include "orv-sdk/resample_memory.h"

#include <libresample.h>

#include <algorithm>
#include <array>
#include <csetjmp>
#include <cstdlib>
#include <new>

#include "utils/static_tls.h"

namespace ORVEL {

namespace {

constexpr int kHighQuality = 1;

/** A call of libresample that takes memory: what it has so far, and where to go without more. */
struct Taking {
  std::jmp_buf failed;
  std::array<void*, 16> blocks{};
};

ORVEL_STATIC_TLS constinit thread_local Taking* taking = nullptr;

// Nothing between here and the jump has a destructor: `call` is one of C, its result is written once.
template <class Call>
void* checked(Call call) {
  Taking state;
  taking = &state;
  if (setjmp(state.failed) != 0) {  // NOLINT(cert-err52-cpp): the callers are C
    for (void* block : taking->blocks) {
      std::free(block);
    }
    taking = nullptr;
    return nullptr;
  }
  void* const handle = call();
  taking = nullptr;
  return handle;
}

ResamplerHandle required(void* handle) {
  if (handle == nullptr) {
    throw std::bad_alloc();
  }
  return ResamplerHandle(handle);
}

}  // namespace

void CloseResampler::operator()(void* handle) const { resample_close(handle); }

ResamplerHandle openResampler(double factor) {
  return required(checked([=] { return resample_open(kHighQuality, factor, factor); }));
}

ResamplerHandle copyResampler(const ResamplerHandle& original) {
  return required(checked([from = original.get()] { return resample_dup(from); }));
}

}  // namespace ORVEL

// What libresample calls instead of malloc, free and fwrite.
extern "C" {

void* orvel_resample_malloc(std::size_t size) {
  ORVEL::Taking& taking = *ORVEL::taking;
  const auto room = std::find(taking.blocks.begin(), taking.blocks.end(), nullptr);
  void* block = room == taking.blocks.end() ? nullptr : std::malloc(size);
  if (block == nullptr) {
    std::longjmp(taking.failed, 1);  // NOLINT(cert-err52-cpp)
  }
  return *room = block;
}

void orvel_resample_free(void* block) {
  if (ORVEL::taking != nullptr) {
    std::replace(ORVEL::taking->blocks.begin(), ORVEL::taking->blocks.end(), block,
                 static_cast<void*>(nullptr));
  }
  std::free(block);
}

// Its one message, from a frame, tells of a status that the frame's caller checks.
void* orvel_resample_stream = nullptr;
std::size_t orvel_resample_message(const void* /*text*/, std::size_t /*size*/, std::size_t count,
                                   void* /*stream*/) {
  return count;
}
}
