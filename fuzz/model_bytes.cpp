// Any bytes as a model: five bytes choose the sessions, two give the length of the tuning keys, the
// keys follow, the rest is the weight file.
#include <algorithm>

#include "fuzz/drive_model.h"
#include "fuzz/support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t kHeader = 7;
  if (size < kHeader) return 0;
  const orvel_fuzz::SessionChoice choice{data[0], data[1], data[2], data[3], data[4]};
  const std::string_view rest = orvel_fuzz::text(data + kHeader, size - kHeader);
  const std::size_t keys = std::min<std::size_t>(data[5] + 256U * data[6], rest.size());
  orvel_fuzz::driveModel(rest.substr(0, keys), rest.substr(keys), choice);
  return 0;
}
