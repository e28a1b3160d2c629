#include "weights/binary_file.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <ios>

#include "utils/native_path.h"

namespace ORVEL::WEIGHTS {

static_assert(std::endian::native == std::endian::little, "weight files are read byte for byte");

namespace {
constexpr int kWriteMode = 1;
// Elements are read in pieces, so that an untrue count cannot reserve memory beyond the file's size.
constexpr std::uint64_t kElementsPerPiece = 16384;
}  // namespace

BinaryFile::BinaryFile(const std::string& path, int mode) {
  const std::string native = UTILS::nativePath(path);
  if (mode == kWriteMode) {
    stream_.open(native, std::ios::out | std::ios::binary | std::ios::trunc);
  } else if (UTILS::isRegularFile(native)) {
    stream_.open(native, std::ios::in | std::ios::binary);
  } else {
    stream_.setstate(std::ios::failbit);
  }
}

void BinaryFile::readBytes(char* bytes, std::size_t count) {
  stream_.read(bytes, static_cast<std::streamsize>(count));
  lastReadBytes_ += static_cast<std::uint64_t>(stream_.gcount());
}

BinaryFile& BinaryFile::read(std::uint32_t& value) {
  lastReadBytes_ = 0;
  readBytes(reinterpret_cast<char*>(&value), sizeof value);
  return *this;
}

BinaryFile& BinaryFile::read(float& value) {
  std::uint32_t bits = 0;
  read(bits);
  value = std::bit_cast<float>(bits);
  return *this;
}

BinaryFile& BinaryFile::read(std::string& value) {
  std::uint32_t length = 0;
  value.clear();
  read(length);
  while (good() && value.size() < length) {
    const std::size_t done = value.size();
    const auto piece =
        static_cast<std::size_t>(std::min<std::uint64_t>(length - done, kElementsPerPiece));
    value.resize(done + piece);
    readBytes(value.data() + done, piece);
  }
  return *this;
}

void BinaryFile::readElements(std::vector<float>& values, std::uint64_t count) {
  values.clear();
  while (good() && values.size() < count) {
    const std::size_t done = values.size();
    const auto piece = static_cast<std::size_t>(std::min(count - done, kElementsPerPiece));
    values.resize(done + piece);
    readBytes(reinterpret_cast<char*>(values.data() + done), piece * sizeof(float));
  }
  values.shrink_to_fit();
}

BinaryFile& BinaryFile::read(std::vector<float>& values) {
  std::uint32_t count = 0;
  read(count);
  readElements(values, count);
  return *this;
}

BinaryFile& BinaryFile::read(CONTAINERS::Matrix& matrix) {
  read(matrix.dim0).read(matrix.dim1);
  readElements(matrix.data, std::uint64_t{matrix.dim0} * matrix.dim1);
  return *this;
}

BinaryFile& BinaryFile::write(std::uint32_t value) {
  stream_.write(reinterpret_cast<const char*>(&value), sizeof value);
  return *this;
}

BinaryFile& BinaryFile::write(float value) { return write(std::bit_cast<std::uint32_t>(value)); }

BinaryFile& BinaryFile::write(const std::string& value) {
  write(static_cast<std::uint32_t>(value.size()));
  stream_.write(value.data(), static_cast<std::streamsize>(value.size()));
  return *this;
}

void BinaryFile::writeElements(const std::vector<float>& values) {
  stream_.write(reinterpret_cast<const char*>(values.data()),
                static_cast<std::streamsize>(values.size() * sizeof(float)));
}

BinaryFile& BinaryFile::write(const std::vector<float>& values) {
  write(static_cast<std::uint32_t>(values.size()));
  writeElements(values);
  return *this;
}

BinaryFile& BinaryFile::write(const CONTAINERS::Matrix& matrix) {
  write(matrix.dim0).write(matrix.dim1);
  writeElements(matrix.data);
  return *this;
}

}  // namespace ORVEL::WEIGHTS
