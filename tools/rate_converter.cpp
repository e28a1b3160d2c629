#include "tools/rate_converter.h"

#include <soxr.h>

#include <string>

#include "tools/tool_error.h"

namespace ORVEL::TOOLS {
namespace {

struct SoxrDeleter {
  void operator()(soxr_t handle) const noexcept { soxr_delete(handle); }
};

void check(soxr_error_t error) {
  if (error != nullptr) {
    throw ToolError(ExitCode::internal,
                    std::string("sample-rate conversion: ") + soxr_strerror(error));
  }
}

constexpr std::size_t kBlock = 4096;

}  // namespace

struct RateConverter::Impl {
  std::unique_ptr<soxr, SoxrDeleter> handle;
};

RateConverter::RateConverter(int inputRate, int outputRate) : impl_(std::make_unique<Impl>()) {
  const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
  const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, 0);
  const soxr_runtime_spec_t runtime = soxr_runtime_spec(1);
  soxr_error_t error = nullptr;
  impl_->handle.reset(soxr_create(inputRate, outputRate, 1, &error, &io, &quality, &runtime));
  check(error);
}

RateConverter::RateConverter(RateConverter&&) noexcept = default;
RateConverter& RateConverter::operator=(RateConverter&&) noexcept = default;
RateConverter::~RateConverter() = default;

// One call; gives how much input it took.
std::size_t RateConverter::step(const float* input, std::size_t count, std::vector<float>& output,
                                bool& idle) {
  const std::size_t before = output.size();
  output.resize(before + kBlock);
  std::size_t taken = 0;
  std::size_t made = 0;
  check(soxr_process(impl_->handle.get(), input, count, &taken, output.data() + before, kBlock,
                     &made));
  output.resize(before + made);
  idle = made < kBlock;
  return taken;
}

void RateConverter::push(std::span<const float> input, std::vector<float>& output) {
  bool idle = false;
  while (!input.empty() || !idle) {
    // An empty input that is not null means "no more for now".
    static constexpr float kNothing = 0.0F;
    const float* from = input.empty() ? &kNothing : input.data();
    input = input.subspan(step(from, input.size(), output, idle));
  }
}

void RateConverter::finish(std::vector<float>& output) {
  for (bool idle = false; !idle;)
    step(nullptr, 0, output, idle);
}

}  // namespace ORVEL::TOOLS
