// Replies to read-variables (0x22) and write-variables (0x23) requests:
// header = pairing byte, function, table address u32, item count, then items.
#include <algorithm>
#include <stdexcept>

#include "tools/plcsim/unity_replies.h"

namespace plcsim {

namespace {

constexpr uint8_t per_element_code = 0x21;

// Bytes of one element for an access code; 0 when the code is not understood.
std::size_t element_width(uint8_t code) {
  switch (code) {
    case 0:
    case 1:
    case per_element_code:
      return 1;
    case 2:
      return 2;
    case 3:
      return 4;
    case 4:
      return 8;
    default:
      return code >= 16 && code <= 20 ? element_width(static_cast<uint8_t>(code - 16)) : 0;
  }
}

bool is_length_code(uint8_t code) {
  return code >= 16 && code <= 20;
}

// The file-handle request reads the first variable with a marker in place of the
// table address; the reply carries the real table address at message byte 8.
byte_vector file_handle_reply(const project& p, const byte_vector& request) {
  msg_writer w;
  w.u8(request[0]).u8(status_ok).zeros(6).le32(p.table_address);
  return w.bytes();
}

struct read_item {
  uint16_t block = 0;
  uint32_t address = 0;
  std::size_t size = 0;
};

// code, block u16, 0x01, address bits 8..23, [0x01 for code 0x21], address
// bits 0..7, [count u16 unless the code is a plain format 0..4 or 0x21].
bool parse_read_item(msg_reader& r, read_item& item) {
  uint8_t code = r.u8();
  item.block = r.le16();
  if (r.u8() != 0x01) return false;
  uint32_t mid = r.le16();
  if (code == per_element_code && r.u8() != 0x01) return false;
  item.address = mid << 8 | r.u8();
  std::size_t count = 1;
  if (code > 4 && code != per_element_code) count = r.le16();
  item.size = element_width(code) * count;
  return element_width(code) != 0;
}

bool table_address_matches(const project& p, const byte_vector& request) {
  return msg_reader(request, 2).le32() == p.table_address;
}

}  // namespace

byte_vector answer_read_variables(const project& p, const sim_memory& mem,
                                  const byte_vector& request) {
  try {
    if (msg_reader(request, 2).le32() == file_handle_marker) return file_handle_reply(p, request);
    if (!table_address_matches(p, request)) return error_reply(request, 5);
    msg_reader r(request, 6);
    uint8_t n = r.u8();
    msg_writer w;
    w.u8(request[0]).u8(status_ok);
    for (uint8_t i = 0; i < n; ++i) {
      read_item item;
      if (!parse_read_item(r, item)) return error_reply(request, 6);
      w.raw(mem.read(item.block, item.address, item.size));
    }
    if (r.remaining() != 0 || w.size() > max_message) return error_reply(request, 6);
    return w.bytes();
  } catch (const std::out_of_range&) {
    return error_reply(request, 2);
  }
}

// Every item of one write has the same size, so the items are found by dividing
// the rest of the message by their count. The count field is present in every
// item when the first item's code is 0x21 or a length code.
byte_vector answer_write_variables(const project& p, sim_memory& mem, const byte_vector& request) {
  try {
    if (!table_address_matches(p, request)) return error_reply(request, 5);
    std::size_t n = request.at(6);
    std::size_t rest = request.size() - 7;
    if (n == 0 || rest % n != 0) return error_reply(request, 6);
    std::size_t item_size = rest / n;
    uint8_t first = request.at(7);
    bool has_count = first == per_element_code || is_length_code(first);
    std::size_t header = has_count ? 9 : 7;
    if (item_size < header) return error_reply(request, 6);
    for (std::size_t i = 0; i < n; ++i) {
      msg_reader r(request, 7 + i * item_size);
      uint8_t code = r.u8();
      uint16_t block = r.le16();
      uint32_t address = r.le32();
      std::size_t count = has_count ? r.le16() : 1;
      if (element_width(code) == 0) return error_reply(request, 6);
      std::size_t len = std::min(element_width(code) * count, item_size - header);
      mem.write(block, address, request.data() + r.pos(), len);
    }
    return {request[0], status_ok, 0x01};
  } catch (const std::out_of_range&) {
    return error_reply(request, 2);
  }
}

}  // namespace plcsim
