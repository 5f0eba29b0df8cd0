// Builds Modbus TCP buffers carrying Unity replies, so that tests, benchmarks and fuzz
// seeds state the fields that matter instead of long runs of hex.
#pragma once

#include <algorithm>
#include <boost/algorithm/hex.hpp>
#include <cstdint>
#include <iterator>
#include <string>
#include <vector>

#include "tools/plcsim/sim_bytes.h"
#include "dictionary/dictionary_records.h"
#include "wire/byte_cursor.h"
#include "wire/unity_constants.h"

namespace harness {

using bytes = std::vector<unsigned char>;

// A Unity reply message built by the simulator's encoder, which shares no code with the
// driver's: pairing byte and status, the payload to be appended little-endian.
inline plcsim::msg_writer unity_message(uint8_t status = 0xFE, uint8_t pairing = 0x00) {
  plcsim::msg_writer m;
  m.u8(pairing).u8(status);
  return m;
}

// A dictionary reply up to its records: format, next address, record count.
inline plcsim::msg_writer dictionary_reply(uint8_t format, uint32_t next_address, uint16_t count) {
  plcsim::msg_writer m = unity_message();
  m.u8(format).le32(next_address).le16(count);
  return m;
}

// "02 0201 FF" as bytes: pairs of hex digits, spaces ignored.
inline bytes hex(std::string text) {
  text.erase(std::remove(text.begin(), text.end(), ' '), text.end());
  bytes out;
  boost::algorithm::unhex(text, std::back_inserter(out));
  return out;
}

// The whole buffer: MBAP header (length = message + 2) and function code 0x5A.
inline bytes modbus_reply(const bytes& message, uint16_t transaction_id = 1) {
  plcsim::msg_writer out;
  out.be16(transaction_id).be16(0).be16(static_cast<uint16_t>(message.size() + 2));
  out.u8(0).u8(wire::unity_function_code).raw(message);
  return out.bytes();
}

// The transaction id of a request and its Unity message (the bytes after the function code).
inline uint16_t transaction_of(const bytes& request) {
  return wire::be_reader(request).u16();
}
inline bytes message_of(const bytes& request) {
  return bytes(request.begin() + 8, request.end());
}

// The controller's answer to request: status 0xFE (accepted) then payload, or 0xFD (refused).
inline bytes ok_reply(const bytes& request, bytes payload) {
  payload.insert(payload.begin(), {0x00, wire::status_ok});
  return modbus_reply(payload, transaction_of(request));
}
inline bytes refused_reply(const bytes& request) {
  return modbus_reply({0x00, wire::status_error, 0x00}, transaction_of(request));
}

// A decoded reply as the decoders receive it: one frame whose nodes[0] holds the message.
inline unity_frame decoded_reply(const bytes& message, uint8_t record_format = 0,
                                 uint16_t record_count = 0) {
  unity_frame frame;
  frame.function_code = 0x5A;
  frame.status_word = static_cast<uint16_t>(message.at(0) | message.at(1) << 8);
  frame.record_format = record_format;
  frame.record_count = record_count;
  frame.nodes.resize(1);
  frame.nodes[0].name = message;
  return frame;
}

}  // namespace harness
