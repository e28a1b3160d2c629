// Any bytes as a weight file: what is read is consistent, no larger than the bytes, and the same from a
// file.
#include "weights/weight.h"

#include <string>
#include <vector>

#include "containers/matrix.h"
#include "fuzz/support.h"
#include "utils/orvel_exception.h"

using ORVEL::CONTAINERS::Matrix;
using orvel_fuzz::MemoryFile;
using orvel_fuzz::require;

namespace {

std::size_t checkedSize(const Matrix& matrix) {
  const std::uint64_t elements = std::uint64_t{matrix.dim0} * matrix.dim1;
  require(matrix.data.size() == elements, "a matrix holds rows x columns values");
  return matrix.data.size() * sizeof(float);
}
std::size_t checkedSize(const std::vector<float>& values) { return values.size() * sizeof(float); }
std::size_t checkedSize(const std::string& value) { return value.size(); }

template <class T>
std::size_t checkedSize(const std::vector<T>& list) {
  std::size_t bytes = 0;
  for (const T& element : list)
    bytes += checkedSize(element);
  return bytes;
}

template <class T>
std::size_t sizeOf(const ORVEL::WEIGHTS::Weight& weight, const std::string& name) {
  const auto value = weight.values().get<T>(name);
  return value == nullptr ? 0 : checkedSize(*value);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const MemoryFile file;
  file.write(orvel_fuzz::text(data, size));
  ORVEL::WEIGHTS::Weight weight, fromFile;
  const std::string problem = weight.parse(orvel_fuzz::text(data, size));
  require(!problem.empty() || weight.error().empty(), "a failed load gives a reason");
  require(weight.error().empty() || weight.values().size() == 0, "a failed load leaves nothing");
  const bool loaded = fromFile.load(file.path().c_str());
  require(loaded == weight.error().empty(), "a file is read as its bytes");
  require(fromFile.values().size() == weight.values().size(), "a file is read as its bytes");
  std::size_t bytes = 0;
  for (const auto& [name, value] : weight.values()) {
    bytes += name.size() + sizeOf<std::string>(weight, name) + sizeOf<Matrix>(weight, name) +
             sizeOf<std::vector<float>>(weight, name) +
             sizeOf<std::vector<std::vector<float>>>(weight, name) +
             sizeOf<std::vector<Matrix>>(weight, name);
  }
  require(bytes <= size, "no more values than the file holds");
  try {
    ORVEL::WEIGHTS::getWeightVersion(weight);
    ORVEL::WEIGHTS::getWeightInfo(weight);
  } catch (const ORVEL::UTILS::ORVEL_Exception&) {
  }
  return 0;
}
