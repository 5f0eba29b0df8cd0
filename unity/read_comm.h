// One variable access item of a read or write request, and the type-id tables.
#pragma once

#include <array>
#include <cstdint>
#include <deque>

struct read_comm {
  // Block number (bytes 0..1, LE) and base byte offset (bytes 2..5, LE; low 24 bits used).
  std::array<unsigned char, 6> location{};
  uint64_t member_offset = 0;   // offset of the member or element inside the variable
  uint16_t element_offset = 0;  // further offset added to the base offset
  uint16_t count = 0;           // elements accessed
  uint8_t read_format = 0;      // 255: no direct format; 0x21: length taken from the type
  uint16_t type_id = 0;
  uint8_t single_element = 0;   // set by the read builder for one-element items of type 25
  std::deque<unsigned char> data;

  // Access format code of a type id (255 outside 1..25).
  static int get_read_format_from_type(uint16_t type_id);
  // Length code sent for a type whose length the type defines (255 outside 1..25).
  static int use_reading_defines_length_from_type(uint16_t type_id);
};
