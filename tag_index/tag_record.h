// The per-request tag record, also the key of the driver's per-item value map.
#pragma once

#include <array>
#include <cstdint>

struct offline_stTag_578 {
  uint32_t request_index = 0;  // tag number (compared as signed)
  uint16_t request_word = 0;   // array index (0xFFFF stored as 0)
  uint8_t request_byte = 0;    // type code
  const char* name = nullptr;  // the entry's name, not copied
  uint32_t read_format = 0;
  uint16_t type_id = 0;
  std::array<unsigned char, 6> location{};
  uint64_t member_offset = 0;
  int8_t bit_number = -1;  // -1 (0xFF): no bit

  // index, word, byte, then bit (only when word and byte tie), then name by strcmp.
  bool operator<(const offline_stTag_578& other) const;
};
