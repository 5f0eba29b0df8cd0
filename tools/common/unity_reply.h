// Builds Modbus TCP buffers carrying Unity replies, so that tests, benchmarks and fuzz
// seeds state the fields that matter instead of long runs of hex.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "unity/dictionary_records.h"
#include "wire/byte_cursor.h"
#include "wire/unity_constants.h"

namespace harness {

using bytes = std::vector<unsigned char>;

// A Unity reply message: pairing byte, status, then payload appended little-endian.
class unity_message {
 public:
  explicit unity_message(uint8_t status = 0xFE, uint8_t pairing = 0x00) {
    bytes_ = {pairing, status};
  }
  unity_message& u8(uint8_t v) {
    bytes_.push_back(v);
    return *this;
  }
  unity_message& u16(uint16_t v) {
    wire::le_writer(bytes_).u16(v);
    return *this;
  }
  unity_message& u32(uint32_t v) {
    wire::le_writer(bytes_).u32(v);
    return *this;
  }
  unity_message& raw(const bytes& b) {
    bytes_.insert(bytes_.end(), b.begin(), b.end());
    return *this;
  }
  // Characters followed by the terminating zero.
  unity_message& name(const std::string& s) {
    bytes_.insert(bytes_.end(), s.begin(), s.end());
    return u8(0);
  }
  unity_message& zeros(std::size_t n) {
    bytes_.insert(bytes_.end(), n, 0);
    return *this;
  }
  // Dictionary reply header after pairing and status: format, next address, record count.
  unity_message& dictionary_header(uint8_t format, uint32_t next_address, uint16_t count) {
    return u8(format).u32(next_address).u16(count);
  }
  const bytes& get() const { return bytes_; }

 private:
  bytes bytes_;
};

// "02 0201 FF" as bytes: pairs of hex digits, spaces ignored.
inline bytes hex(const std::string& text) {
  bytes out;
  std::string digits;
  for (char c : text)
    if (c != ' ') digits += c;
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2)
    out.push_back(static_cast<unsigned char>(std::stoul(digits.substr(i, 2), nullptr, 16)));
  return out;
}

// The whole buffer: MBAP header (length = message + 2) and function code 0x5A.
inline bytes modbus_reply(const bytes& message, uint16_t transaction_id = 1) {
  bytes out(8, 0);
  wire::be_writer header(out);
  header.u16(transaction_id);
  header.u16(0);
  header.u16(static_cast<uint16_t>(message.size() + 2));
  header.u8(0);
  header.u8(wire::unity_function_code);
  out.insert(out.end(), message.begin(), message.end());
  return out;
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
