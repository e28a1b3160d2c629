// Paths that lead to no file, and files that would like to take more memory than they have bytes.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>

#include "tests/safety/guard.h"
#include "tests/support/sdk.h"
#include "tests/support/signals.h"

namespace orvel_test {
namespace {

constexpr size_t kFileBytes = 1U << 20U;

int setModel(const std::string& control, const char* name) {
  Capture quiet;
  return Orv_SDK_SetModel(control.c_str(), name);
}

// The alarm ends the program if a load waits for a writer or reads a device.
TEST(HostileFiles, PathsThatLeadToNoFileAreRefusedAtOnce) {
  Sdk sdk;
  const auto link = [&](const char* target, const char* name) {
    std::filesystem::create_symlink(target, sdk.dir().file(name));
  };
  mkfifo(sdk.dir().file("fifo").c_str(), 0600);
  std::filesystem::create_directory(sdk.dir().file("directory"));
  link("fifo", "link-to-fifo");
  link("missing", "dangling");
  link("round", "round");
  link("/dev/zero", "endless");
  for (const char* name : {"fifo", "link-to-fifo", "directory", "dangling", "round", "endless",
                           "missing", "no/such/folder", "", ".", "..\\"}) {
    SCOPED_TRACE(name);
    alarm(30);
    EXPECT_EQ(setModel(name, "model"), 2);
    sdk.dir().write("weights.ctl", "WEIGHT " + std::string(name) + "\n");
    EXPECT_EQ(setModel("weights.ctl", "model"), 2);
    alarm(0);
  }
}

std::string repeated(const std::string& piece) {
  std::string bytes;
  while (bytes.size() < kFileBytes)
    bytes += piece;
  return bytes;
}

std::string record(const std::string& name, uint32_t type, const std::string& payload) {
  return u32Bytes(static_cast<uint32_t>(name.size())) + name + u32Bytes(type) + payload;
}

// Records of the smallest kind there is, each with a name of its own.
std::string manyRecords(uint32_t type, const std::string& payload) {
  std::string bytes;
  for (uint32_t i = 0; bytes.size() < kFileBytes; ++i)
    bytes += record(u32Bytes(i), type, payload);
  return bytes;
}

std::string manyLines(size_t bytes) {
  std::string lines;
  for (int i = 0; lines.size() < bytes; ++i)
    lines.append("k").append(std::to_string(i)).append(" v\n");
  return lines;
}

const std::string kMost = "\xff\xff\xff\xff";

// A value in memory has a few words around it, however small it is in the file.
TEST(HostileFiles, LoadingTakesMemoryInProportionToTheFile) {
  constexpr double kMostTimes = 16.0;
  // Smaller than a mebibyte, which is the most that a control file may have.
  constexpr double kMostTimesOfKeys = 32.0;
  const std::string zeros(kFileBytes, '\0');
  struct File {
    const char* what;
    std::string weights;
    std::string control;
  };
  const File files[] = {
      {"a sound model", makeModel({.band = 200, .hidden = {128, 128}}).weights().bytes(), ""},
      {"a long name", u32Bytes(kFileBytes) + zeros, ""},
      {"an endless name", kMost + zeros, ""},
      {"an endless vector", record("v", 3, kMost + zeros), ""},
      {"an endless matrix", record("m", 4, kMost + kMost + zeros), ""},
      {"empty vectors", record("v", 5, kMost + zeros), ""},
      {"wide empty matrices", record("m", 6, kMost + repeated(kMost + u32Bytes(0))), ""},
      {"nameless records", repeated(record("", 1, u32Bytes(1))), ""},
      {"small records", manyRecords(1, u32Bytes(1)), ""},
      {"small texts", manyRecords(2, u32Bytes(0)), ""},
      {"records of no type", manyRecords(99, ""), ""},
      {"many keys", "", manyLines(kFileBytes / 2)},
      {"too many keys", "", manyLines(8 * kFileBytes)},
      {"one long key", "", std::string(kFileBytes / 2, 'k') + " v\n"},
  };
  for (const File& file : files) {
    SCOPED_TRACE(file.what);
    Sdk sdk;
    sdk.dir().write("weights.bin", file.weights);
    sdk.dir().write("model.ctl", file.control + "WEIGHT weights.bin\n");
    size_t peak = 0;
    {
      Capture quiet;
      peak = peakHeapOf([] { Orv_SDK_SetModel("model.ctl", "model"); });
    }
    const auto size = static_cast<double>(file.weights.size() + file.control.size());
    const double times = static_cast<double>(peak) / size;
    std::cout << file.what << ": " << times << " bytes a byte\n";
    const double most = file.control.empty() ? kMostTimes : kMostTimesOfKeys;
    EXPECT_LE(static_cast<double>(peak), most * size + 100000.0);
  }
}

// The limit to the byte, through every way that a control text takes.
TEST(HostileFiles, AControlTextHasAMebibyteAtMost) {
  const std::string weights = makeModel({}).weights().bytes();
  Sdk sdk;
  sdk.dir().write("weights.bin", weights);
  for (const size_t size : {kFileBytes, kFileBytes + 1}) {
    const bool fits = size == kFileBytes;
    const std::string name = std::to_string(size);
    std::string text = "WEIGHT weights.bin\nKEY ";
    text.resize(size - 1, 'v');
    text += '\n';
    sdk.dir().write("long.ctl", text);
    EXPECT_EQ(setModel("long.ctl", name.c_str()), fits ? 0 : 2);
    void* context = Orv_Context_Create(sdk.dir().path().c_str());
    EXPECT_EQ(Orv_Context_SetModel(context, "long.ctl", "file"), fits ? 0 : 2);
    EXPECT_EQ(Orv_Context_SetModelFromMemory(context, text.data(), text.size(), weights.data(),
                                             weights.size(), "memory"),
              fits ? 0 : 2);
    EXPECT_EQ(Orv_Context_Destroy(context), 0);
  }
}

// However many sessions came and went, what is kept for them does not grow.
TEST(HostileFiles, ClosedSessionsLeaveNothingBehind) {
  Sdk sdk;
  ASSERT_EQ(sdk.load("model", makeModel({})), 0);
  const auto openAndClose = [](int times) {
    for (int i = 0; i < times; ++i)
      Orv_NC_CloseSession(Orv_NC_CreateSession(16000, 16000, 10, "model"));
  };
  openAndClose(10);
  const size_t few = peakHeapOf([&] { openAndClose(10); });
  const size_t many = peakHeapOf([&] { openAndClose(3000); });
  EXPECT_LE(many, few + 64);
}

// Contexts on one file hold its weights, and the form in which the network uses them, once.
TEST(HostileFiles, ContextsOnOneFileShareItsMemory) {
  const TempDir dir;
  Shape shape{
      .version = "0.0.5", .band = 200, .hidden = {256, 256}, .compress = 0, .gateWidth = 256};
  const std::string weights = makeModel(shape).weights().bytes();
  dir.write("model.bin", weights);
  dir.write("model.ctl", "WEIGHT model.bin\nORVEL_COMPRESS_RATE_v0_0_5 0\n");
  // Files written a moment ago may be written again unnoticed and are not shared.
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  const auto open = [&] {
    void* context = Orv_Context_Create(dir.path().c_str());
    EXPECT_EQ(Orv_Context_SetModel(context, "model.ctl", "model"), 0)
        << Orv_Context_LastError(context);
    EXPECT_NE(Orv_Context_CreateCleaner(context, 16000, 16000, 10, "model"), nullptr);
    return context;
  };
  void* first = nullptr;
  void* second = nullptr;
  const size_t ofFirst = peakHeapOf([&] { first = open(); });
  const size_t ofSecond = peakHeapOf([&] { second = open(); });
  std::cout << "weights " << weights.size() << ", first context " << ofFirst << ", second "
            << ofSecond << " bytes\n";
  EXPECT_GT(ofFirst, 2 * weights.size());
  EXPECT_LT(ofSecond, weights.size() / 4);
  const size_t ofGlobal = peakHeapOf([&] {
    EXPECT_EQ(Orv_SDK_GlobalInit(dir.path().c_str()), 0);
    EXPECT_EQ(setModel("model.ctl", "model"), 0);
  });
  EXPECT_LT(ofGlobal, weights.size() / 4) << "the global instance shares them as well";
  EXPECT_EQ(Orv_SDK_GlobalDestroy(), 0);

  // A file that has changed is another one.
  const std::vector<int16_t> input = speechLike(16000, 0.1);
  const auto outputOf = [&](void* context) {
    return cleanStream(Orv_Context_CreateCleaner(context, 16000, 16000, 10, "model"), input, 160,
                       160);
  };
  const std::vector<int16_t> before = outputOf(first);
  shape.seed = 9;
  dir.write("model.bin", makeModel(shape).weights().bytes());
  void* third = open();
  EXPECT_NE(outputOf(third), before);
  EXPECT_EQ(outputOf(second), before);
  for (void* context : {first, second, third})
    EXPECT_EQ(Orv_Context_Destroy(context), 0);
}

}  // namespace
}  // namespace orvel_test
