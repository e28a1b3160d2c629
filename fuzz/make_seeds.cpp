// Writes the seed corpora: make_seeds FOLDER. Small, valid inputs of every kind for each target.
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

#include "tests/support/signals.h"
#include "tests/support/versions.h"

namespace {

namespace fs = std::filesystem;

class Corpus {
 public:
  Corpus(const fs::path& folder, const char* target) : folder_(folder / target) {
    fs::create_directories(folder_);
  }
  void add(const std::string& name, const std::string& bytes) const {
    std::ofstream(folder_ / name, std::ios::binary) << bytes;
  }

 private:
  fs::path folder_;
};

struct Seed {
  std::string name;
  std::string weights;
  std::string keys;
};

std::vector<Seed> models() {
  std::vector<Seed> seeds;
  for (const orvel_test::CleanerTraits* version : orvel_test::cleanerVersions()) {
    orvel_test::Shape shape = orvel_test::shapeOf(*version);
    shape.rate = version->compressesBands() ? 16000 : 8000;
    shape.band = 8;
    shape.preview = 2;
    shape.nat = 2;
    shape.hidden = {4, 4};
    shape.gateWidth = 4;
    const orvel_test::TestModel model = orvel_test::isDetector(*version)
                                            ? orvel_test::makeVadModel()
                                            : orvel_test::makeModel(shape);
    std::string keys;
    for (const auto& [key, value] : orvel_test::allStages(*version))
      keys.append(key + " " + value + "\n");
    seeds.push_back({version->version, model.weights().bytes(), keys});
  }
  return seeds;
}

std::string header(unsigned inRate, unsigned outRate, unsigned duration, std::size_t keys) {
  std::string bytes;
  for (const std::size_t value : {std::size_t{inRate}, std::size_t{outRate}, std::size_t{duration},
                                  std::size_t{6}, std::size_t{0}, keys % 256, keys / 256})
    bytes += static_cast<char>(value);
  return bytes;
}

void writeModels(const fs::path& folder) {
  const Corpus reader(folder, "weight_reader");
  const Corpus control(folder, "control_file");
  const Corpus bytes(folder, "model_bytes");
  unsigned i = 0;
  for (const Seed& seed : models()) {
    reader.add(seed.name, seed.weights);
    control.add(seed.name, "WEIGHT " + seed.name + ".bin\n# a comment\n\n" + seed.keys);
    bytes.add(seed.name, header(2 + i, 8 - i, i, seed.keys.size()) + seed.keys + seed.weights);
    ++i;
  }
  orvel_test::WeightBuilder odd;
  odd.raw("Unknown", 99, "").integer("Twice", 1).floats("", {}).matrices("Empty", {});
  odd.matrix("Flat", {0, 7, {}}).lists("Lists", {{}, {1.0F}}).text("Text", std::string(3, '\0'));
  reader.add("odd", odd.bytes());
  control.add("blanks", "KEY \t value with blanks \r\n  \n#\nKEY");
}

void writeShapes(const fs::path& folder) {
  const Corpus shapes(folder, "model_shapes");
  for (int i = 0; i < 32; ++i) {
    std::string bytes;
    unsigned state = 12345U + 77U * static_cast<unsigned>(i);
    for (int n = 0; n < 96; ++n) {
      state = state * 1103515245U + 12345U;
      bytes += static_cast<char>(state >> 16U);
    }
    shapes.add("random" + std::to_string(i), bytes);
  }
}

void writeFrames(const fs::path& folder) {
  const Corpus frames(folder, "frames");
  const std::vector<std::int16_t> speech = orvel_test::speechLike(8000, 0.05);
  const std::string samples(reinterpret_cast<const char*>(speech.data()), speech.size() * 2);
  for (char model = 0; model < 4; ++model) {
    for (char rate = 0; rate < 9; rate += 4) {
      const std::string open{'\0', model, static_cast<char>(rate % 4), rate,
                             static_cast<char>(8 - rate)};
      frames.add(std::to_string(model) + "-" + std::to_string(rate),
                 open + '\x01' + samples + '\x04' + samples + '\x06' + "wild" + '\x07' + "limit");
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: make_seeds FOLDER\n";
    return 2;
  }
  writeModels(argv[1]);
  writeShapes(argv[1]);
  writeFrames(argv[1]);
  return 0;
}
