// Transforms that cannot be prepared, and transforms that fail while a stream runs.
#include <algorithm>
#include <complex>

#include "orv-sdk/instance.h"
#include "tests/support/sdk.h"
#include "tests/support/signals.h"
#include "utils/fft.h"

#if defined(ORVEL_MATH_MKL)
#include <mkl_dfti.h>

namespace {
MKL_LONG commitStatus = DFTI_NO_ERROR;
}

// The linker puts it in front of MKL's own.
extern "C" {
MKL_LONG __real_DftiCommitDescriptor(DFTI_DESCRIPTOR_HANDLE descriptor);
MKL_LONG __wrap_DftiCommitDescriptor(DFTI_DESCRIPTOR_HANDLE descriptor);
MKL_LONG __wrap_DftiCommitDescriptor(DFTI_DESCRIPTOR_HANDLE descriptor) {
  return commitStatus == DFTI_NO_ERROR ? __real_DftiCommitDescriptor(descriptor) : commitStatus;
}
}
#endif

namespace orvel_test {
namespace {

using ORVEL::UTILS::FFT;

// Fails when told to, and otherwise transforms.
class FailingFFT final : public FFT {
 public:
  FailingFFT(std::size_t length, const bool& forwardFails, const bool& backwardFails)
      : works_(ORVEL::UTILS::createFFT(static_cast<unsigned>(length))),
        forwardFails_(forwardFails),
        backwardFails_(backwardFails) {}
  bool forward(const float* in, std::size_t inCount, std::complex<float>* out,
               std::size_t outCount) override {
    return !forwardFails_ && works_->forward(in, inCount, out, outCount);
  }
  bool backward(const std::complex<float>* in, std::size_t inCount, float* out,
                std::size_t outCount) override {
    return !backwardFails_ && works_->backward(in, inCount, out, outCount);
  }

 private:
  std::shared_ptr<FFT> works_;
  const bool& forwardFails_;
  const bool& backwardFails_;
};

class TransformFailure : public testing::Test {
 protected:
  // Puts a failing transform where the model's first session would put its own.
  void load(const TestModel& model) {
    ASSERT_EQ(sdk_.load("model", model), 0);
    const auto length = static_cast<std::size_t>(model.frameLength);
    const auto entry = ORVEL::Instance(ORVEL::InstanceAccess::kGet)->models().find("model");
    entry->weight->obtain<std::shared_ptr<FFT>>(std::to_string(length), [&] {
      return std::make_shared<FailingFFT>(length, forwardFails_, backwardFails_);
    });
  }

  Sdk sdk_;
  bool forwardFails_ = false;
  bool backwardFails_ = false;
};

TEST_F(TransformFailure, CleanedFramesAreSilentAndSaySoOnce) {
  for (const bool backward : {false, true}) {
    for (const int rate : {16000, 48000}) {
      SCOPED_TRACE(testing::Message() << (backward ? "backward " : "forward ") << rate);
      load(makeAllPass(16000));
      void* session = Orv_NC_CreateSession(rate, rate, 20, "model");
      ASSERT_NE(session, nullptr);
      const size_t size = samplesPerFrame(rate, 20);
      const std::vector<float> in = toFloat(speechLike(rate, 1.0));
      std::vector<float> out(size);
      const auto frame = [&](size_t i) {
        return clean(session, in.data() + i * size, size, out.data(), size);
      };
      const auto isSilent = [&] {
        return std::all_of(out.begin(), out.end(), [](float sample) { return sample == 0.0F; });
      };
      Capture capture;
      for (size_t i = 0; i < 10; ++i)
        EXPECT_EQ(frame(i), 0);
      EXPECT_FALSE(isSilent());
      (backward ? backwardFails_ : forwardFails_) = true;
      for (size_t i = 10; i < 20; ++i) {
        EXPECT_EQ(frame(i), -3);
        EXPECT_TRUE(isSilent());
      }
      EXPECT_EQ(capture.err(), "ERROR a transform failed, frames of the session are silent\n");
      forwardFails_ = backwardFails_ = false;
      for (size_t i = 20; i < 25; ++i)
        EXPECT_EQ(frame(i), 0);
      EXPECT_FALSE(isSilent());
      EXPECT_EQ(capture.err(), "");
      EXPECT_EQ(Orv_NC_CloseSession(session), 0);
      Orv_SDK_GlobalDestroy();
      ASSERT_EQ(Orv_SDK_GlobalInit(sdk_.dir().path().c_str()), 0);
    }
  }
}

TEST_F(TransformFailure, ScoresAreZero) {
  load(makeVadModel());
  void* session = Orv_VAD_CreateSession(8000, 10, "model");
  ASSERT_NE(session, nullptr);
  const std::vector<float> in = toFloat(speechLike(8000, 0.1));
  float score = -1.0F;
  EXPECT_EQ(Orv_VAD_ProcessFloat(session, in.data(), 80, &score), 0);
  EXPECT_GT(score, 0.0F);
  forwardFails_ = true;
  Capture capture;
  EXPECT_EQ(Orv_VAD_ProcessFloat(session, in.data(), 80, &score), -3);
  EXPECT_EQ(score, 0.0F);
  EXPECT_NE(capture.err(), "");
}

#if defined(ORVEL_MATH_MKL)
TEST_F(TransformFailure, OneThatCannotBePreparedIsNotKept) {
  ASSERT_EQ(sdk_.load("model", makeModel({})), 0);
  const std::pair<MKL_LONG, const char*> rows[] = {{DFTI_MEMORY_ERROR, "out of memory"},
                                                   {DFTI_MKL_INTERNAL_ERROR, "status 7"}};
  for (const auto& [status, reason] : rows) {
    commitStatus = status;
    Capture capture;
    EXPECT_EQ(Orv_NC_CreateSession(16000, 16000, 10, "model"), nullptr);
    const std::string text = capture.err();
    EXPECT_NE(text.find("the transform of 512 samples cannot be prepared"), std::string::npos)
        << text;
    EXPECT_NE(text.find(reason), std::string::npos) << text;
  }
  commitStatus = DFTI_NO_ERROR;
  void* session = Orv_NC_CreateSession(16000, 16000, 10, "model");
  ASSERT_NE(session, nullptr);
  const std::vector<float> in = toFloat(speechLike(16000, 1.0));
  const std::vector<float> out = cleanStream(session, in, 160, 160);
  EXPECT_GT(*std::max_element(out.begin(), out.end()), 0.01F);
}
#endif

}  // namespace
}  // namespace orvel_test
