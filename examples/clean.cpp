// Cleans stereo floats at 16 kHz: clean_cpp MODEL.ctl < IN > OUT, late by cleaner.latency().
#include <cstdio>
#include <orvel/orvel.hpp>

int main(int argc, char** argv) {
  orvel::Library library;
  library.loadModel(argv[argc - 1]);
  orvel::StreamCleaner cleaner(library, {.rate = 16000, .channels = 2});
  std::vector<float> block(2 * 1000), tail(2 * cleaner.latency());
  while (const size_t count = fread(block.data(), 4, block.size(), stdin)) {
    cleaner.process(std::span(block).first(count), std::span(block).first(count));
    if (fwrite(block.data(), 4, count, stdout) != count) return 1;
  }
  cleaner.flush(tail);
  return fwrite(tail.data(), 4, tail.size(), stdout) != tail.size();
}
