#pragma once

#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

#include "containers/matrix.h"
#include "utils/non_copyable.h"

namespace ORVEL::WEIGHTS {

/**
 * Little-endian binary file of the weight format's building blocks: u32, f32, string, float vector,
 * matrix. Reads and writes can be chained; after a failure the file is no longer good and nothing
 * throws but allocation. A count larger than what the file holds costs no more memory than the file.
 */
class BinaryFile : private UTILS::NonCopyable {
 public:
  /** Mode 1 opens for writing, any other for reading; a path that is no regular file is not read. */
  BinaryFile(const std::string& path, int mode);

  bool good() const { return stream_.good(); }
  /** True once a read ran into the end of the file. */
  bool atEnd() const { return stream_.eof(); }
  /** Bytes that the last read operation found before it succeeded or failed. */
  std::uint64_t lastReadBytes() const { return lastReadBytes_; }

  BinaryFile& read(std::uint32_t& value);
  BinaryFile& read(float& value);
  BinaryFile& read(std::string& value);
  BinaryFile& read(std::vector<float>& values);
  BinaryFile& read(CONTAINERS::Matrix& matrix);

  BinaryFile& write(std::uint32_t value);
  BinaryFile& write(float value);
  BinaryFile& write(const std::string& value);
  BinaryFile& write(const std::vector<float>& values);
  BinaryFile& write(const CONTAINERS::Matrix& matrix);

 private:
  void readBytes(char* bytes, std::size_t count);
  void readElements(std::vector<float>& values, std::uint64_t count);
  void writeElements(const std::vector<float>& values);

  std::fstream stream_;
  std::uint64_t lastReadBytes_ = 0;
};

}  // namespace ORVEL::WEIGHTS
