#pragma once

#include <cstdint>

#include "containers/any_map.h"
#include "weights/binary_file.h"

namespace ORVEL::WEIGHTS {

/** Type codes of a weight file's records. */
enum class RecordType : std::uint32_t {
  kFloat = 0,
  kInt = 1,
  kText = 2,
  kVector = 3,
  kMatrix = 4,
  kVectorList = 5,
  kMatrixList = 6,
};

/**
 * Reads records (name, type code, payload) until the end of the file. A record that is cut inside its
 * type code or payload is dropped; an unknown type code has no payload. The first of two records with
 * one name is kept.
 *
 * @return false when the file cannot be read or ends inside a record's name; the map then holds the
 *         records before it.
 */
bool readRecords(BinaryFile& file, CONTAINERS::AnyMap& values);

}  // namespace ORVEL::WEIGHTS
