// Where a read leaves the values of one request position until the input filter runs.
#pragma once

#include <cstdint>

struct result_slot {
  uint8_t type_code;
  uint8_t bit_number;  // 255: none
  uint16_t element_count;
  uint8_t unused[8];
  uint8_t data[792];  // values as 16-bit units; the first 512 bytes are cleared per fill
};
static_assert(sizeof(result_slot) == 804, "result slots are 804 bytes apart");
