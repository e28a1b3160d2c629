#include <orvel/orvel.hpp>

orvel::StreamCleaner openStream(const orvel::Library& library);

int main(int argc, char** argv) {
  orvel::Library library(argc > 1 ? argv[1] : "");
  library.loadModel("orvel-16k.ctl");
  orvel::StreamCleaner cleaner = openStream(library);
  std::vector<float> block(123);
  cleaner.process(block, block);
  return cleaner.latency() > 0 ? 0 : 1;
}
