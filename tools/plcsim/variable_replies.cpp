// Replies to read-variables (0x22) and write-variables (0x23) requests:
// header = pairing byte, function, table address u32, item count, then items.
#include <set>
#include <stdexcept>
#include <vector>

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

bool has_count(uint8_t code) {
  return code == per_element_code || is_length_code(code);
}

// One variable access of a request: where, and how many bytes.
struct item_span {
  uint16_t block = 0;
  uint32_t address = 0;
  std::size_t size = 0;
  std::size_t end = 0;  // message position just past the item
};

// What ends a read item after its code, block, 0x01 and address bits 8..23: the client
// picks it from the item's read format and count, which the message does not carry.
enum class read_tail {
  bare,    // address bits 0..7: a plain code 0..4, or type 9's length code 17 alone
  marker,  // 0x01, then address bits 0..7: code 0x21 (or 17 for type 9) for one element
  count,   // address bits 0..7, then the count u16: a length code, or 0x21 for a run
};

std::vector<read_tail> tails_of(uint8_t code) {
  if (code <= 4) return {read_tail::bare};
  if (code == per_element_code) return {read_tail::marker, read_tail::count};
  if (code == 16 + 1) return {read_tail::count, read_tail::bare, read_tail::marker};
  if (is_length_code(code)) return {read_tail::count};
  return {};
}

// The readings of the item at pos that its code allows, each with its own end.
std::vector<item_span> read_item_readings(const byte_vector& request, std::size_t pos) {
  std::vector<item_span> out;
  for (read_tail tail : tails_of(request.at(pos))) {
    try {
      msg_reader r(request, pos);
      const uint8_t code = r.u8();
      item_span item;
      item.block = r.le16();
      if (r.u8() != 0x01) return out;
      const uint32_t mid = r.le16();
      if (tail == read_tail::marker && r.u8() != 0x01) continue;
      item.address = mid << 8 | r.u8();
      const std::size_t count = tail == read_tail::count ? r.le16() : 1;
      item.size = element_width(code) * count;
      item.end = r.pos();
      out.push_back(item);
    } catch (const std::out_of_range&) {
    }
  }
  return out;
}

// Splits the items so that the whole message is used: the first reading of each item
// with which the rest still parses. Positions known not to parse are not tried twice.
bool parse_read_items(const byte_vector& request, std::size_t pos, std::size_t left,
                      std::vector<item_span>& items, std::set<std::size_t>& dead_ends) {
  if (left == 0) return pos == request.size();
  if (pos >= request.size() || dead_ends.count(pos * 256 + left) != 0) return false;
  for (const item_span& item : read_item_readings(request, pos)) {
    items.push_back(item);
    if (parse_read_items(request, item.end, left - 1, items, dead_ends)) return true;
    items.pop_back();
  }
  dead_ends.insert(pos * 256 + left);
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
    std::set<std::size_t> dead_ends;
    if (!parse_read_items(request, 7, n, items, dead_ends)) return error_reply(request, 6);
    msg_writer w;
    w.u8(request[0]).u8(status_ok);
    for (const item_span& item : items) w.raw(mem.read(item.block, item.address, item.size));
    if (w.size() > max_message) return error_reply(request, 6);
    return w.bytes();
  } catch (const std::out_of_range&) {
    return error_reply(request, 2);
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
