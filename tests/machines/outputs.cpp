// Streams of all shipped models at several rates through the library's exports, kept in a file so that
// builds for different machines can be compared: compare.py.
//
//   orvel_outputs FILE            makes the inputs and writes them with this build's outputs
//   orvel_outputs FILE EXPECTED   takes the inputs from another build's file: sines differ in their last bits
//
// A record is a line "MODEL RATE KIND INPUTS OUTPUTS" and that many floats, in the machine's byte order.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <orvel/orvel.hpp>
#include <set>
#include <span>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/signals.h"

namespace {

namespace fs = std::filesystem;
using Floats = std::vector<float>;

std::string read(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + path.string());
  return {std::istreambuf_iterator<char>(file), {}};
}

// Speech that clips, fades and falls silent.
Floats signal(int rate) {
  Floats samples = orvel_test::toFloat(orvel_test::speechLike(rate, 2.0));
  const std::size_t quarter = samples.size() / 4;
  for (std::size_t i = 0; i < quarter; ++i) {
    samples[i] = std::clamp(6.0F * samples[i], -1.0F, 1.0F);
    samples[2 * quarter + i] *= 1.0F - static_cast<float>(i) / static_cast<float>(quarter);
    samples[3 * quarter + i] *= i < quarter / 2 ? 0.0F : 1.0F;
  }
  return samples;
}

struct Stream {
  std::string model;
  int rate;
  Floats in;
};

bool detects(const orvel::Model& model) { return model.kind == orvel::ModelKind::voiceActivity; }

Floats process(const orvel::Library& library, const orvel::Model& model, const Stream& stream) {
  const std::size_t size = static_cast<std::size_t>(stream.rate) / 100;
  const std::span<const float> in(stream.in);
  Floats out;
  Floats frame(size);
  if (detects(model)) {
    orvel::Detector detector(library, {.rate = stream.rate, .model = stream.model});
    for (std::size_t at = 0; at + size <= in.size(); at += size)
      out.push_back(detector.process(in.subspan(at, size)));
    return out;
  }
  orvel::Cleaner cleaner(library, {.inputRate = stream.rate, .model = stream.model});
  for (std::size_t at = 0; at + size <= in.size(); at += size) {
    cleaner.process(in.subspan(at, size), frame);
    out.insert(out.end(), frame.begin(), frame.end());
  }
  return out;
}

using Models = std::map<std::string, orvel::Model>;

std::vector<Stream> makeStreams(const Models& models) {
  std::vector<Stream> streams;
  for (const auto& [name, model] : models) {
    for (const int rate : std::set<int>{model.sampleRate, 8000, 16000, 44100, 48000})
      streams.push_back({name, rate, signal(rate)});
  }
  return streams;
}

std::vector<Stream> readStreams(const fs::path& path) {
  std::istringstream file(read(path));
  std::vector<Stream> streams;
  std::size_t inputs = 0;
  std::size_t outputs = 0;
  std::string kind;
  for (Stream stream; file >> stream.model >> stream.rate >> kind >> inputs >> outputs;) {
    file.ignore(1);
    stream.in.resize(inputs);
    file.read(reinterpret_cast<char*>(stream.in.data()),
              static_cast<std::streamsize>(inputs * sizeof(float)));
    file.ignore(static_cast<std::streamsize>(outputs * sizeof(float)));
    streams.push_back(stream);
  }
  return streams;
}

void write(std::ofstream& file, const Floats& values) {
  file.write(reinterpret_cast<const char*>(values.data()),
             static_cast<std::streamsize>(values.size() * sizeof(float)));
}

}  // namespace

int main(int argc, char** argv) try {
  if (argc < 2) throw std::runtime_error("usage: orvel_outputs FILE [EXPECTED]");
  orvel::Library library;
  Models models;
  for (const auto& entry : fs::directory_iterator(ORVEL_MODELS_DIR)) {
    if (entry.path().extension() != ".ctl") continue;
    fs::path weights = entry.path();
    const std::string bytes = read(weights.replace_extension(".bin"));
    const std::string name = entry.path().stem();
    models.emplace(name, library.loadModelFromMemory(read(entry.path()),
                                                     std::as_bytes(std::span(bytes)), name));
  }
  std::ofstream file(argv[1], std::ios::binary);
  for (const Stream& stream : argc > 2 ? readStreams(argv[2]) : makeStreams(models)) {
    const orvel::Model& model = models.at(stream.model);
    const Floats out = process(library, model, stream);
    file << stream.model << ' ' << stream.rate << (detects(model) ? " detector " : " cleaner ")
         << stream.in.size() << ' ' << out.size() << '\n';
    write(file, stream.in);
    write(file, out);
  }
  file.close();
  if (!file) throw std::runtime_error("cannot write the outputs");
  return 0;
} catch (const std::exception& error) {
  std::cerr << "orvel_outputs: " << error.what() << '\n';
  return 1;
}
