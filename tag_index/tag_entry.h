// One tag of the tag table: its name from the tag file and, once resolved, where it
// lives in controller memory. Entries live in one malloc block (see tag_table.h).
#pragma once

#include <array>
#include <cstdint>

struct tag_entry {
  char* name;  // zero-terminated; 16-bit characters when the table has wide names
  uint8_t file_kind;
  uint32_t file_value1;
  uint32_t file_value2;
  uint32_t read_format;  // 255: no direct format
  uint16_t type_id;
  std::array<unsigned char, 6> location;  // block (u16 LE), offset (u32 LE)
  uint64_t member_offset;
};
