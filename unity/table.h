// One variable of the controller's variables table.
#pragma once

#include <cstdint>
#include <vector>

struct table {
  int32_t read_format = 255;  // format of type_id when stored (255: no direct format)
  uint16_t type_id = 0;
  // Always 6 bytes: block number (u16 LE), byte offset in the block (u32 LE).
  std::vector<unsigned char> location;
};
