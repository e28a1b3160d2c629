#include <orvel/orvel.hpp>

orvel::StreamCleaner openStream(const orvel::Library& library) {
  return {library, {.rate = 16000}};
}
