// Dictionary records as the decoders store them, for tests, fuzz targets and benchmarks
// that build a dictionary by hand.
#pragma once

#include <cstdint>
#include <string>

#include "dictionary/dictionary_records.h"
#include "wire/byte_cursor.h"

namespace dictionary_builders {

// A structure member: name with its zero, type id (u16 LE) and byte offset (u32 LE).
inline data_type member(const std::string& name, uint16_t type, uint32_t offset) {
  data_type m;
  m.name = name + '\0';
  wire::le_writer(m.bounds).u16(type);
  wire::le_writer(m.member_offset_bytes).u32(offset);
  return m;
}

// A variables-table entry at block:offset.
inline table variable(uint16_t type, uint16_t block, uint32_t offset) {
  table t;
  t.type_id = type;
  t.read_format = read_comm::get_read_format_from_type(type);
  wire::le_writer(t.location).u16(block).u32(offset);
  return t;
}

}  // namespace dictionary_builders
