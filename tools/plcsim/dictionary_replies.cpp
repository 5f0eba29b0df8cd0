// Replies to data dictionary reads (Unity function 0x26): the list of derived
// types, the detail of one type, and the variables table. Long answers are
// paged so that no reply exceeds what a client reads in one go.
#include <iterator>
#include <stdexcept>

#include "tools/plcsim/unity_replies.h"

namespace plcsim {

namespace {

constexpr uint8_t list_data_types = 0x03;
constexpr uint8_t list_detail_or_table = 0x02;
constexpr uint16_t variables_table = 0xFFFF;
constexpr std::size_t max_list_records = 255;

// Continuation u32 at [2..5], count at [6..7], five bytes unused, records from [13].
byte_vector data_type_list(const project& p, const byte_vector& request) {
  uint32_t start = msg_reader(request, 9).le32();
  msg_writer records;
  uint16_t count = 0;
  uint32_t next = 0;
  uint32_t index = 0;
  for (auto it = p.types.begin(); it != p.types.end(); ++it, ++index) {
    if (index < start) continue;
    std::size_t len = 2 + it->second.name.size() + 1 + 5;
    if (count == max_list_records || 13 + records.size() + len > max_message) {
      next = index;
      break;
    }
    records.le16(it->first).cstr(it->second.name).zeros(5);
    ++count;
  }
  msg_writer w;
  w.u8(request[0]).u8(status_ok).le32(next).le16(count).zeros(5).raw(records.bytes());
  return w.bytes();
}

// Record format 2, next member index at [3..4] (0 when complete), member count
// at [7..8], members from [9]: type u16, offset u32, two zero bytes, name.
byte_vector struct_detail(const derived_type& t, const byte_vector& request) {
  uint16_t start = msg_reader(request, 11).le16();
  if (start >= t.members.size() && !t.members.empty()) return error_reply(request, 3);
  msg_writer records;
  uint16_t count = 0;
  uint16_t next = 0;
  for (std::size_t i = start; i < t.members.size(); ++i) {
    const member& m = t.members[i];
    if (9 + records.size() + 8 + m.name.size() + 1 > max_message) {
      next = static_cast<uint16_t>(i);
      break;
    }
    records.le16(m.type).le32(m.offset).zeros(2).cstr(m.name);
    ++count;
  }
  msg_writer w;
  w.u8(request[0]).u8(status_ok).u8(2).le16(next).le16(0).le16(count).raw(records.bytes());
  return w.bytes();
}

// Record format 4, element type at [3..4], dimension count at [5], then per
// dimension the low and high bound as two signed 32-bit values.
byte_vector array_detail(const derived_type& t, const byte_vector& request) {
  msg_writer w;
  w.u8(request[0]).u8(status_ok).u8(4).le16(t.element_type);
  w.u8(static_cast<uint8_t>(t.dimensions.size()));
  for (const auto& d : t.dimensions)
    w.le32(static_cast<uint32_t>(d.first)).le32(static_cast<uint32_t>(d.second));
  return w.bytes();
}

byte_vector type_detail(const project& p, uint16_t type_id, const byte_vector& request) {
  auto it = p.types.find(type_id);
  // A controller answers a string type's detail with an error; clients rely on it.
  if (it == p.types.end() || it->second.kind == "string") return error_reply(request);
  if (it->second.kind == "struct") return struct_detail(it->second, request);
  return array_detail(it->second, request);
}

// Record format 9, next index at [3..6] (0 on the last page), record count at
// [7..8], records from [9]: type u16, block u16, offset u32, two unused bytes, name.
byte_vector variables_page(const project& p, const byte_vector& request) {
  uint32_t start = msg_reader(request, 11).le32();
  if (start > p.variables.size()) return error_reply(request, 3);
  msg_writer records;
  uint16_t count = 0;
  uint32_t next = 0;
  for (std::size_t i = start; i < p.variables.size(); ++i) {
    const variable& v = p.variables[i];
    if (count == 0xFFFF || 9 + records.size() + 10 + v.name.size() + 1 > max_message) {
      next = static_cast<uint32_t>(i);
      break;
    }
    records.le16(v.type).le16(v.block).le32(v.offset).zeros(2).cstr(v.name);
    ++count;
  }
  msg_writer w;
  w.u8(request[0]).u8(status_ok).u8(9).le32(next).le16(count).raw(records.bytes());
  return w.bytes();
}

bool handle_matches(const project& p, const byte_vector& request) {
  return msg_reader(request, 5).le32() == static_cast<uint32_t>(p.dictionary_handle);
}

}  // namespace

// 00 26, the list selector, FB 03, the handle, then 4 bytes (the type list's continuation)
// or 6 (a type id or FF FF, then the continuation): anything else is not a dictionary read.
bool well_formed(const byte_vector& request) {
  constexpr std::size_t list_size = 13, detail_size = 15;
  const std::size_t size = request.at(2) == list_data_types ? list_size : detail_size;
  return request.size() == size && request.at(3) == 0xFB && request.at(4) == 0x03;
}

byte_vector answer_dictionary(const project& p, const byte_vector& request) {
  try {
    if (request.at(2) != list_data_types && request.at(2) != list_detail_or_table)
      return error_reply(request);
    if (!well_formed(request)) return error_reply(request, 2);
    if (!handle_matches(p, request)) return error_reply(request, 4);
    if (request.at(2) == list_data_types) return data_type_list(p, request);
    uint16_t type_id = msg_reader(request, 9).le16();
    if (type_id == variables_table) return variables_page(p, request);
    return type_detail(p, type_id, request);
  } catch (const std::out_of_range&) {
    return error_reply(request, 2);
  }
}

}  // namespace plcsim
