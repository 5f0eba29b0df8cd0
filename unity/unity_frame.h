// One decoded Unity reply.
#pragma once

#include <cstdint>
#include <vector>

#include "unity/node.h"

struct unity_frame {
  uint8_t function_code = 0;  // Modbus function code (0x5A)
  uint16_t status_word = 0;   // low byte: pairing byte, high byte: Unity status (0xFE ok)
  uint8_t record_format = 0;  // 2 structure detail, 4 array detail, 9 named records
  uint32_t next_address = 0;  // paging position; 0 when nothing follows
  uint16_t record_count = 0;
  // nodes[0] carries the whole Unity message; parsed records follow.
  std::vector<node> nodes;
};
