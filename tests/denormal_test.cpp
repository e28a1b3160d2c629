// A faint stream, which conversion of its rate would turn into denormal numbers, meets none in a frame: the
// processor would note them in its flags.
#include <gtest/gtest.h>

#if defined(__SSE2__)
#include <xmmintrin.h>

#include <cmath>

#include "orv-sdk/session.h"
#include "tests/support/signals.h"
#include "tests/support/test_model.h"
#include "utils/diagnostics.h"

namespace orvel_test {
namespace {

using ORVEL::SessionKind;

TEST(Denormals, NoFrameMeetsAny) {
  constexpr unsigned kDenormalFlag = 2;
  std::vector<float> faint = toFloat(speechLike(48000, 0.3));
  // Normal numbers, which come back to full scale times 32768.
  for (float& sample : faint)
    sample = std::copysign(std::fmax(std::fabs(sample) * 1e-36F, 2e-38F), sample);
  for (const bool cleans : {true, false}) {
    const TestModel weights =
        cleans ? makeModel({.version = "0.0.5", .compress = 2}) : makeVadModel(16000);
    auto weight = std::make_shared<ORVEL::WEIGHTS::Weight>();
    ASSERT_EQ(weight->parse(weights.weights().bytes()), "");
    const auto model = std::make_shared<ORVEL::WEIGHTS::Model>(ORVEL::UTILS::standardStreams());
    model->weight = weight;
    ORVEL::WEIGHTS::ModelStore store("", ORVEL::UTILS::standardStreams());
    store.add("model", model);
    ORVEL::ResamplerCache resamplers;
    const SessionKind kind = cleans ? SessionKind::kNoiseCleaning : SessionKind::kVoiceActivity;
    ORVEL::OrvSessionT session(store, resamplers, {48000, 48000, 10, "model", kind});
    std::vector<float> out(480);
    const unsigned before = _mm_getcsr();
    _mm_setcsr(before & ~kDenormalFlag);
    for (size_t at = 0; at + 480 <= faint.size(); at += 480) {
      if (cleans) {
        session.process(&faint[at], 480, out.data(), 480);
      } else {
        session.score(&faint[at], 480, out.data());
      }
    }
    const unsigned after = _mm_getcsr();
    _mm_setcsr(before);
    EXPECT_EQ(after & kDenormalFlag, 0U) << (cleans ? "cleaning" : "scoring");
  }
}

}  // namespace
}  // namespace orvel_test

#endif
