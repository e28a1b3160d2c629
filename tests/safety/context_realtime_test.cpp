// Sessions of contexts allocate nothing, take no lock and make no system call, whatever they are asked.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/safety/guard.h"
#include "tests/support/sdk.h"
#include "tests/support/signals.h"

namespace orvel_test {
namespace {

// The library's functions as a program finds them that opens a copy of it at run time.
struct OpenedLibrary {
  OpenedLibrary() {
    Dl_info info{};
    dladdr(reinterpret_cast<void*>(&Orv_SDK_GetVersion), &info);
    const std::string copy = dir.file("copy.so");
    std::filesystem::copy_file(std::filesystem::canonical(info.dli_fname), copy);
    library = dlopen(copy.c_str(), RTLD_NOW | RTLD_LOCAL);
  }
  template <class Function>
  Function* find(Function& /*ours*/, const char* name) const {
    return reinterpret_cast<Function*>(dlsym(library, name));
  }
#define FIND(library, name) (library).find(name, #name)

  TempDir dir;
  void* library;
};

// Sessions of a context, resets and refused calls included: nothing at all. The thread is new, and the
// library was opened at run time, so that thread-local storage would be taken from the heap.
TEST(ContextRealTime, SessionsDoNothingForbidden) {
  const OpenedLibrary opened;
  ASSERT_NE(opened.library, nullptr) << dlerror();
  const TempDir models;
  models.write("cleaner.bin", makeModel({.version = "0.0.5", .compress = 2}).weights().bytes());
  models.write("cleaner.ctl", "WEIGHT cleaner.bin\nORVEL_COMPRESS_RATE_v0_0_5 2\n");
  models.write("detector.bin", makeVadModel().weights().bytes());
  models.write("detector.ctl", "WEIGHT detector.bin\n");
  void* context = FIND(opened, Orv_Context_Create)(models.path().c_str());
  auto* const setModel = FIND(opened, Orv_Context_SetModel);
  auto* const lastError = FIND(opened, Orv_Context_LastError);
  ASSERT_EQ(setModel(context, "cleaner.ctl", nullptr), 0) << lastError(context);
  ASSERT_EQ(setModel(context, "detector.ctl", nullptr), 0) << lastError(context);
  void* cleaner = FIND(opened, Orv_Context_CreateCleaner)(context, 48000, 44100, 10, "cleaner");
  void* detector = FIND(opened, Orv_Context_CreateDetector)(context, 16000, 10, "detector");
  auto* const cleanFrame = FIND(opened, Orv_NC_CleanAmbientNoiseFloat);
  auto* const scoreFrame = FIND(opened, Orv_VAD_ProcessFloat);
  auto* const setLimit = FIND(opened, Orv_NC_SetAttenuationLimit);
  auto* const resetCleaner = FIND(opened, Orv_NC_ResetSession);
  auto* const resetDetector = FIND(opened, Orv_VAD_ResetSession);
  std::vector<float> in = toFloat(speechLike(48000, 0.1)), out(441);
  float score = 0.0F;
  std::string reason;
  bool allRight = true;
  Misdeeds misdeeds;
  const bool watched = onWatchedThread([&] {
    misdeeds = misdeedsOf([&] {
      allRight &= cleanFrame(cleaner, in.data(), 479, out.data(), 441) == 1;
      allRight &= cleanFrame(detector, in.data(), 480, out.data(), 441) == 2;
      allRight &= scoreFrame(detector, in.data(), 160, nullptr) == 1;
      allRight &= setLimit(cleaner, -1.0F) == 1;
      for (int round = 0; round < 3; ++round) {
        for (size_t at = 0; at + 480 <= in.size(); at += 480) {
          allRight &= cleanFrame(cleaner, &in[at], 480, out.data(), 441) == 0;
          allRight &= scoreFrame(detector, &in[at], 160, &score) == 0;
        }
        allRight &= resetCleaner(cleaner) == 0 && resetDetector(detector) == 0;
      }
    });
    reason = lastError(context);
  });
  ASSERT_TRUE(watched) << "no system-call filter (seccomp) on this machine";
  EXPECT_TRUE(allRight);
  EXPECT_TRUE(misdeeds.none()) << misdeeds;
  EXPECT_EQ(reason, "the attenuation limit must be finite and not negative");
  // The program's own copy knows nothing of it.
  EXPECT_EQ(Orv_Context_Destroy(context), 2);
  EXPECT_EQ(FIND(opened, Orv_Context_Destroy)(context), 0);
  EXPECT_EQ(dlclose(opened.library), 0);
}

}  // namespace
}  // namespace orvel_test
