#include "tests/cli/program.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <fstream>
#include <sstream>

#include "tests/support/signals.h"

namespace orvel_test {
namespace {

// Starts a program with the standard streams on files.
pid_t startProgram(const TempDir& dir, std::vector<std::string> words) {
  const pid_t child = fork();
  if (child != 0) {
    return child;
  }
  std::vector<char*> pointers;
  pointers.reserve(words.size() + 1);
  for (std::string& word : words) {
    pointers.push_back(word.data());
  }
  pointers.push_back(nullptr);
  const std::string in = dir.file(".stdin");
  dup2(open(in.c_str(), O_RDONLY | O_CREAT, 0600), 0);
  dup2(open(dir.file(".stdout").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 1);
  dup2(open(dir.file(".stderr").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 2);
  execv(pointers.front(), pointers.data());
  _exit(127);
}

}  // namespace

std::string slurp(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << file.rdbuf();
  return bytes.str();
}

pid_t start(const TempDir& dir, const std::vector<std::string>& arguments) {
  std::vector<std::string> words = {ORVEL_CLI};
  words.insert(words.end(), arguments.begin(), arguments.end());
  return startProgram(dir, words);
}

Result finish(const TempDir& dir, pid_t child) {
  int status = 0;
  waitpid(child, &status, 0);
  const int code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return {code, slurp(dir.file(".stdout")), slurp(dir.file(".stderr"))};
}

Result orvel(const TempDir& dir, const std::vector<std::string>& arguments,
             const std::string& input) {
  dir.write(".stdin", input);
  return finish(dir, start(dir, arguments));
}

Result shell(const TempDir& dir, const std::string& script) {
  dir.write(".stdin", "");
  const std::string front = "cd '" + dir.path() + "'; ORVEL='" ORVEL_CLI "'; ";
  return finish(dir, startProgram(dir, {"/bin/bash", "-c", front + script}));
}

void save(const std::string& path, const Sound& sound) {
  SF_INFO info{};
  info.samplerate = sound.rate;
  info.channels = sound.channels;
  info.format = sound.format;
  SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
  ASSERT_NE(file, nullptr) << path << ": " << sf_strerror(nullptr);
  sf_command(file, SFC_SET_CLIPPING, nullptr, SF_TRUE);
  sf_write_float(file, sound.samples.data(), static_cast<sf_count_t>(sound.samples.size()));
  sf_close(file);
}

Sound load(const std::string& path) {
  SF_INFO info{};
  SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
  if (file == nullptr) {
    return {};
  }
  Sound sound{info.samplerate, info.channels, info.format, {}};
  sound.samples.resize(static_cast<size_t>(info.frames * info.channels));
  sf_readf_float(file, sound.samples.data(), info.frames);
  sf_close(file);
  return sound;
}

Sound speech(int rate, double seconds, int channels, int format) {
  Sound sound{rate, channels, format, {}};
  const auto frames = static_cast<size_t>(rate * seconds);
  sound.samples.resize(frames * static_cast<size_t>(channels));
  for (int c = 0; c < channels; ++c) {
    const auto voice = speechLike(rate, seconds + 0.1, 3 + static_cast<unsigned>(c));
    for (size_t i = 0; i < frames; ++i) {
      sound.samples[i * static_cast<size_t>(channels) + static_cast<size_t>(c)] =
          static_cast<float>(voice[i]) / 32768.0F;
    }
  }
  return sound;
}

std::vector<float> channel(const Sound& sound, int index) {
  std::vector<float> samples;
  const auto step = static_cast<size_t>(sound.channels);
  for (size_t i = static_cast<size_t>(index); i < sound.samples.size(); i += step) {
    samples.push_back(sound.samples[i]);
  }
  return samples;
}

int bestLag(const std::vector<float>& original, const std::vector<float>& other, int range) {
  int best = 0;
  double highest = -1.0;
  const auto count = static_cast<std::ptrdiff_t>(std::min(original.size(), other.size()));
  for (int lag = -range; lag <= range; ++lag) {
    double sum = 0.0;
    for (std::ptrdiff_t i = range; i < count - range; ++i) {
      sum += static_cast<double>(original[static_cast<size_t>(i)]) *
             static_cast<double>(other[static_cast<size_t>(i + lag)]);
    }
    if (sum > highest) {
      highest = sum;
      best = lag;
    }
  }
  return best;
}

double powerDb(const std::vector<float>& samples) {
  double sum = 1e-20;
  for (float x : samples) {
    sum += static_cast<double>(x) * static_cast<double>(x);
  }
  return 10.0 * std::log10(sum / static_cast<double>(std::max<size_t>(samples.size(), 1)));
}

double snrDb(const std::vector<float>& original, const std::vector<float>& other) {
  std::vector<float> difference(std::min(original.size(), other.size()));
  for (size_t i = 0; i < difference.size(); ++i) {
    difference[i] = original[i] - other[i];
  }
  return powerDb(original) - powerDb(difference);
}

CliTest::CliTest() : models_(dir_.file("models")) {
  std::filesystem::create_directory(models_);
  addModel("orvel-8k", makeAllPass(8000));
  addModel("orvel-16k", makeAllPass(16000));
  addModel("orvel-32k", makeAllPass(32000));
  addModel("orvel-vad", makeVadModel());
  setenv("ORVEL_MODEL_DIR", models_.c_str(), 1);
}

void CliTest::addModel(const std::string& name, const TestModel& model, const std::string& keys) {
  dir_.write("models/" + name + ".bin", model.weights().bytes());
  dir_.write("models/" + name + ".ctl", "WEIGHT " + name + ".bin\n" + keys);
}

Result CliTest::run(const std::vector<std::string>& arguments, const std::string& input) {
  return orvel(dir_, arguments, input);
}

std::vector<std::string> CliTest::list(const std::string& folder) const {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(dir_.file(folder))) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace orvel_test
