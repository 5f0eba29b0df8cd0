// The data dictionary records a session downloads (variables, data types, the records of
// a decoded reply) and the variable access item of a read or write request.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

// One variable of the controller's variables table.
struct table {
  int32_t read_format = 255;  // format of type_id when stored (255: no direct format)
  uint16_t type_id = 0;
  // Always 6 bytes: block number (u16 LE), byte offset in the block (u32 LE).
  std::vector<unsigned char> location;
};

// One controller data type, or one member of a structured type.
struct data_type {
  std::string name;  // includes the terminating zero as its last character
  // Array type: dimension bytes (8 per dimension). Structure member: its type id (u16 LE).
  std::vector<unsigned char> bounds;
  uint8_t kind = 0;
  // Structure member: its byte offset inside the structure (u32 LE).
  std::vector<unsigned char> member_offset_bytes;
  uint16_t element_type = 0;  // array type: type id of its elements
};

// One record parsed out of a dictionary reply.
struct node {
  uint16_t type_id = 0;  // record bytes 0..1
  uint16_t block = 0;    // record bytes 2..3
  uint32_t offset = 0;   // record bytes 4..7
  uint16_t spare = 0;    // never filled
  // The record's name with its final zero byte; in the first node of a unity_frame,
  // the whole Unity message of the reply.
  std::vector<unsigned char> name;
};

// One decoded Unity reply.
struct unity_frame {
  uint8_t function_code = 0;  // Modbus function code (0x5A)
  uint16_t status_word = 0;   // low byte: pairing byte, high byte: Unity status (0xFE ok)
  uint8_t record_format = 0;  // 2 structure detail, 4 array detail, 9 named records
  uint32_t next_address = 0;  // paging position; 0 when nothing follows
  uint16_t record_count = 0;
  // nodes[0] carries the whole Unity message; parsed records follow.
  std::vector<node> nodes;
};

// One variable access item of a read or write request, and the type-id tables.
struct read_comm {
  // Block number (bytes 0..1, LE) and base byte offset (bytes 2..5, LE; low 24 bits used).
  std::array<unsigned char, 6> location{};
  uint64_t member_offset = 0;   // offset of the member or element inside the variable
  uint16_t element_offset = 0;  // further offset added to the base offset
  uint16_t count = 0;           // elements accessed
  uint8_t read_format = 0;      // 255: no direct format; 0x21: length taken from the type
  uint16_t type_id = 0;
  uint8_t single_element = 0;  // set by the read builder for one-element items of type 25
  std::deque<unsigned char> data;

  // Access format code of a type id (255 outside 1..25).
  static int get_read_format_from_type(uint16_t type_id);
  // Length code sent for a type whose length the type defines (255 outside 1..25).
  static int use_reading_defines_length_from_type(uint16_t type_id);
};
