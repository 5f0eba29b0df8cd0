// One record parsed out of a dictionary reply.
#pragma once

#include <cstdint>
#include <vector>

struct node {
  uint16_t type_id = 0;  // record bytes 0..1
  uint16_t block = 0;    // record bytes 2..3
  uint32_t offset = 0;   // record bytes 4..7
  uint16_t spare = 0;    // never filled
  // The record's name with its final zero byte; in the first node of a unity_frame,
  // the whole Unity message of the reply.
  std::vector<unsigned char> name;
};
