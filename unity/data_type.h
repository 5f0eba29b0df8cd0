// One controller data type, or one member of a structured type.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct data_type {
  std::string name;  // includes the terminating zero as its last character
  // Array type: dimension bytes (8 per dimension). Structure member: its type id (u16 LE).
  std::vector<unsigned char> bounds;
  uint8_t kind = 0;
  // Structure member: its byte offset inside the structure (u32 LE).
  std::vector<unsigned char> member_offset_bytes;
  uint16_t element_type = 0;  // array type: type id of its elements
};
