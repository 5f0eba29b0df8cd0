// Replies to the identification exchanges. Payload shapes follow a real
// controller's replies; only the fields a client decodes carry project values.
#include <boost/algorithm/hex.hpp>
#include <iterator>
#include <stdexcept>

#include "tools/plcsim/unity_replies.h"

namespace plcsim {

namespace {

byte_vector hex(const char* s) {
  byte_vector out;
  boost::algorithm::unhex(s, std::back_inserter(out));
  return out;
}

byte_vector ok_reply(const byte_vector& request, const char* payload_hex) {
  byte_vector out{request.at(0), status_ok};
  byte_vector payload = hex(payload_hex);
  out.insert(out.end(), payload.begin(), payload.end());
  return out;
}

// 0x02: the type text's length sits at message byte 24, the text from 25.
byte_vector plc_identification(const project& p, const byte_vector& request) {
  byte_vector out = ok_reply(request, "10ff5a01010000007002000027000900080000000000");
  out.push_back(static_cast<uint8_t>(p.plc_type.size()));
  out.insert(out.end(), p.plc_type.begin(), p.plc_type.end());
  byte_vector tail = hex("010101000000001100");
  out.insert(out.end(), tail.begin(), tail.end());
  return out;
}

byte_vector project_information(const byte_vector& request) {
  if (request.size() > 2 && request[2] == 0x04)
    return ok_reply(
        request,
        "09800000000000260000000000b400000000002600800000000001000001001900000000000004"
        "000001001c00000000000000000000000000000000000001000001001a0000000000000400000100"
        "1b00000000000000000001001900000000000000000001001c0000000000");
  return ok_reply(request,
                  "020500009888010000020500009888010000020c3b0c0e01de07020c3b0c0e01de07080000000850"
                  "726f6a65637400");
}

// 0x04: an M580 reports half its table address as u32 at message byte 18.
byte_vector plc_information(const project& p, const byte_vector& request) {
  byte_vector out = ok_reply(request,
                             "02828006b0d56f1b37583d110000000037583d1137583d1103000000000000000000"
                             "0000010000000000000000000000000000000000000001080400010100"
                             "00fa00");
  if (p.is_m580()) {
    uint32_t half = p.table_address / 2;
    for (int i = 0; i < 4; ++i) out.at(18 + i) = static_cast<uint8_t>(half >> (8 * i));
  }
  return out;
}

// 0x20: range byte, block u16, offset u32, size u16; the reply echoes range
// and size before the bytes.
byte_vector memory_block(const sim_memory& mem, const byte_vector& request) {
  msg_reader r(request, 2);
  uint8_t range = r.u8();
  uint16_t block = r.le16();
  uint32_t offset = r.le32();
  uint16_t size = r.le16();
  if (size > max_message - 5) return error_reply(request, 1);
  msg_writer w;
  w.u8(request[0]).u8(status_ok).u8(range).le16(size).raw(mem.read(block, offset, size));
  return w.bytes();
}

}  // namespace

byte_vector answer_identification(const project& p, const sim_memory& mem,
                                  const byte_vector& request) {
  try {
    switch (request.at(1)) {
      case 0x01:
        return ok_reply(request, "fd000104000032000000000000");
      case 0x02:
        return plc_identification(p, request);
      case 0x03:
        return project_information(request);
      case 0x04:
        return plc_information(p, request);
      case 0x07:
        return ok_reply(request, "");
      case 0x20:
        return memory_block(mem, request);
      default:
        return error_reply(request);
    }
  } catch (const std::out_of_range&) {
    return error_reply(request, 2);
  }
}

}  // namespace plcsim
