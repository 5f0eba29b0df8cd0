// Replies to read-variables (0x22) and write-variables (0x23) requests:
// header = pairing byte, function, table address u32, item count, then items.
#include <stdexcept>
#include <vector>

#include "tools/plcsim/project_layout.h"
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
// table address: 00 22 <marker> 01, then one code-1 item (01, block u16, 01, address bits
// 8..23, bits 0..7). The reply carries the real table address at message byte 8.
byte_vector file_handle_reply(const project& p, const byte_vector& request) {
  constexpr std::size_t size = 14;
  if (request.size() != size || request[6] != 1 || request[7] != 1 || request[10] != 0x01)
    return error_reply(request, 6);
  msg_writer w;
  w.u8(request[0]).u8(status_ok).zeros(6).le32(p.table_address);
  return w.bytes();
}

bool has_count(uint8_t code) {
  return code == per_element_code || is_length_code(code);
}

// One variable access of a request: where, and how many bytes.
struct item_span {
  uint8_t code = 0;
  uint16_t block = 0;
  uint32_t address = 0;
  std::size_t size = 0;
  std::size_t end = 0;  // message position just past the item
};

// A read item at pos, laid out as its code byte says: code, block u16, 0x01, address bits
// 8..23 (u16), then
//   codes 0..4 (one value of 1/1/2/4/8 bytes): address bits 0..7;
//   code 0x21 (one 1-byte element): 0x01, then address bits 0..7;
//   codes 16..20 (a run of code-16 values): address bits 0..7, then the count u16.
// Any other code, a wrong marker or a missing byte refuses the message.
item_span parse_read_item(const byte_vector& request, std::size_t pos) {
  msg_reader r(request, pos);
  const uint8_t code = r.u8();
  if (element_width(code) == 0) throw std::invalid_argument("plcsim: unknown access code");
  item_span item;
  item.code = code;
  item.block = r.le16();
  if (r.u8() != 0x01) throw std::invalid_argument("plcsim: no item marker");
  const uint32_t mid = r.le16();
  if (code == per_element_code && r.u8() != 0x01)
    throw std::invalid_argument("plcsim: no element marker");
  item.address = mid << 8 | r.u8();
  const std::size_t count = is_length_code(code) ? r.le16() : 1;
  item.size = element_width(code) * count;
  item.end = r.pos();
  return item;
}

// A controller lays a string of odd declared length out in whole 16-bit words: read whole
// (by its length code 17), it comes with one more byte, a zero filling its last word.
bool padded(const project& p, const item_span& item) {
  if (item.code != 16 + 1 || item.size % 2 == 0) return false;
  for (const variable& v : p.variables) {
    if (v.block != item.block || v.offset != item.address) continue;
    const auto type = p.types.find(v.type);
    return type != p.types.end() && type->second.kind == "string" &&
           type_size(p, v.type) == item.size;
  }
  return false;
}

// A write item at pos: code, block u16, address u32, the count u16 when its code is 0x21
// or a length code, then exactly width x count value bytes.
item_span parse_write_item(const byte_vector& request, std::size_t pos) {
  msg_reader r(request, pos);
  const uint8_t code = r.u8();
  item_span item;
  item.block = r.le16();
  item.address = r.le32();
  const std::size_t count = has_count(code) ? r.le16() : 1;
  if (element_width(code) == 0) throw std::invalid_argument("plcsim: unknown access code");
  item.size = element_width(code) * count;
  item.end = r.pos() + item.size;
  if (item.end > request.size()) throw std::out_of_range("plcsim: item values missing");
  return item;
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
    const std::size_t n = request.at(6);
    std::vector<item_span> items;
    for (std::size_t i = 0, pos = 7; i < n; ++i, pos = items.back().end) {
      items.push_back(parse_read_item(request, pos));
    }
    if ((n == 0 ? 7 : items.back().end) != request.size()) return error_reply(request, 6);
    msg_writer w;
    w.u8(request[0]).u8(status_ok);
    for (const item_span& item : items) {
      w.raw(mem.read(item.block, item.address, item.size));
      if (padded(p, item)) w.u8(0);
    }
    if (w.size() > max_message) return error_reply(request, 6);
    return w.bytes();
  } catch (const std::out_of_range&) {
    return error_reply(request, 2);
  } catch (const std::invalid_argument&) {
    return error_reply(request, 6);
  }
}

// Each item is read by its own code; a message with bytes missing or left over is
// refused whole, and nothing of it is written.
byte_vector answer_write_variables(const project& p, sim_memory& mem, const byte_vector& request) {
  try {
    if (!table_address_matches(p, request)) return error_reply(request, 5);
    const std::size_t n = request.at(6);
    std::vector<item_span> items;
    for (std::size_t i = 0, pos = 7; i < n; ++i, pos = items.back().end) {
      items.push_back(parse_write_item(request, pos));
    }
    if (n == 0 || items.back().end != request.size()) return error_reply(request, 6);
    for (const item_span& item : items) {
      mem.write(item.block, item.address, request.data() + item.end - item.size, item.size);
    }
    return {request[0], status_ok, 0x01};
  } catch (const std::out_of_range&) {
    return error_reply(request, 2);
  } catch (const std::invalid_argument&) {
    return error_reply(request, 6);
  }
}

}  // namespace plcsim
