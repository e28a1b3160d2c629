#include "tools/rate_converter.h"

#include <string>

#include "tools/tool_error.h"

namespace ORVEL::TOOLS {
namespace {

void check(soxr_error_t error) {
  if (error != nullptr) {
    throw ToolError(ExitCode::kInternal,
                    std::string("sample-rate conversion: ") + soxr_strerror(error));
  }
}

}  // namespace

RateConverter::RateConverter(int inputRate, int outputRate, std::size_t channels)
    : channels_(channels) {
  const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
  const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, 0);
  const soxr_runtime_spec_t runtime = soxr_runtime_spec(1);
  soxr_error_t error = nullptr;
  handle_.reset(soxr_create(inputRate, outputRate, static_cast<unsigned>(channels), &error, &io,
                            &quality, &runtime));
  check(error);
}

// One call; gives how many frames of the input it took.
std::size_t RateConverter::step(const float* input, std::size_t frames, std::vector<float>& output,
                                bool& idle) {
  constexpr std::size_t kBlock = 4096;
  const std::size_t before = output.size();
  output.resize(before + kBlock * channels_);
  std::size_t taken = 0;
  std::size_t made = 0;
  check(soxr_process(handle_.get(), input, frames, &taken, output.data() + before, kBlock, &made));
  output.resize(before + made * channels_);
  idle = made < kBlock;
  return taken;
}

void RateConverter::push(std::span<const float> input, std::vector<float>& output) {
  bool idle = false;
  while (!input.empty() || !idle) {
    // An empty input that is not null means "no more for now".
    static constexpr float kNothing = 0.0F;
    const float* from = input.empty() ? &kNothing : input.data();
    input = input.subspan(step(from, input.size() / channels_, output, idle) * channels_);
  }
}

void RateConverter::finish(std::vector<float>& output) {
  for (bool idle = false; !idle;) {
    step(nullptr, 0, output, idle);
  }
}

}  // namespace ORVEL::TOOLS
