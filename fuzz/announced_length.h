// Keeps a fuzzed reply's Modbus TCP length near the bytes the input holds. The driver takes
// the announced length at its word and reads what has not arrived as zeros, so a 20-byte
// input announcing 65,535 bytes spends milliseconds in every decoder on zero records, and
// the campaign's rate falls tenfold as such inputs fill the corpus. Up to 256 bytes past the
// input's end are still announced, so that the zero reads stay reachable.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "wire/byte_cursor.h"

inline void bound_announced_length(std::vector<unsigned char>& reply) {
  constexpr std::size_t mbap_size = 6;  // id, protocol, length
  constexpr std::size_t past_the_end = 256;
  if (reply.size() < mbap_size) return;
  const std::size_t most = reply.size() - mbap_size + past_the_end;
  if (wire::be_reader(reply, 4).u16() > most) {
    wire::be_writer(reply, 4).u16(static_cast<uint16_t>(most));
  }
}
