// Runs the orvel command as a user does, and reads and writes its sound files.
#pragma once

#include <gtest/gtest.h>
#include <sndfile.h>
#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/temp_dir.h"
#include "tests/support/test_model.h"

namespace orvel_test {

struct Result {
  int code = -1;  // exit code, or 128 + signal
  std::string out;
  std::string err;
};

// Starts the command with the standard streams on files; gives its process id.
pid_t start(const TempDir& dir, const std::vector<std::string>& arguments);
// Waits for it and collects what it printed.
Result finish(const TempDir& dir, pid_t child);
// Both; standard input is the given bytes.
Result orvel(const TempDir& dir, const std::vector<std::string>& arguments,
             const std::string& input = "");
// Runs a bash script in the directory, in which $ORVEL is the command.
Result shell(const TempDir& dir, const std::string& script);

struct Sound {
  int rate = 0;
  int channels = 1;
  int format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
  std::vector<float> samples;  // interleaved, full scale 1
};

void save(const std::string& path, const Sound& sound);
Sound load(const std::string& path);

// Speech-like sound; every channel differs.
Sound speech(int rate, double seconds, int channels = 1,
             int format = SF_FORMAT_WAV | SF_FORMAT_PCM_16);

std::vector<float> channel(const Sound& sound, int index);

// Offset of `other` against `original`, in samples, that correlates best; searched in +-range.
int bestLag(const std::vector<float>& original, const std::vector<float>& other, int range = 200);

// Power of `original` over that of the difference, dB.
double snrDb(const std::vector<float>& original, const std::vector<float>& other);

double powerDb(const std::vector<float>& samples);

std::string slurp(const std::string& path);

// A directory with all-pass models orvel-8k, orvel-16k and orvel-32k, and orvel-vad; $ORVEL_MODEL_DIR
// names it.
class CliTest : public ::testing::Test {
 protected:
  CliTest();
  void addModel(const std::string& name, const TestModel& model, const std::string& keys = "");
  Result run(const std::vector<std::string>& arguments, const std::string& input = "");
  // Names of everything in a folder, hidden files included.
  std::vector<std::string> list(const std::string& folder) const;

  TempDir dir_;
  std::string models_;
};

}  // namespace orvel_test
