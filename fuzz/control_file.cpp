// Any bytes as the text of a control file: every entry has a key and a value, trimmed and on one line.
#include "weights/control_file.h"

#include "fuzz/support.h"

using orvel_fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto [entries, digest, problem] =
      ORVEL::WEIGHTS::parseControlText(orvel_fuzz::text(data, size));
  require(problem.empty() || entries.empty(), "a text that is refused gives nothing");
  std::size_t bytes = 0;
  for (const auto& [key, value] : entries) {
    require(!key.empty() && !value.empty(), "no empty key or value");
    require(key.find_first_of(" \t\r\n\v\f") == std::string::npos, "a key has no white space");
    require(value.find('\n') == std::string::npos, "a value ends with its line");
    require(std::string(" \t\r\v\f").find(value.back()) == std::string::npos, "a value is trimmed");
    bytes += key.size() + value.size() + 1;
  }
  require(bytes <= size, "no more text than the file holds");
  return 0;
}
