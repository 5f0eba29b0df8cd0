// Run-time variable access: Unity read-variables (0x22) and write-variables (0x23).
#include <array>
#include <stdexcept>

#include "dictionary/type_sizes.h"
#include "guard/guard.h"
#include "trace/trace.h"
#include "unity/unity_process.h"
#include "unity/unity_request.h"
#include "wire/byte_cursor.h"
#include "wire/subscript.h"
#include "wire/unity_constants.h"

namespace {

constexpr unsigned char read_variables = 0x22;
constexpr unsigned char write_variables = 0x23;
constexpr unsigned char format_from_type = 0x21;  // length taken from the item's data type
constexpr unsigned char no_direct_format = 255;
using dictionary::ebool_type;
using dictionary::string_type;
using wire::status_ok;
constexpr unsigned char string_length_code = 17;
constexpr std::size_t max_items = 255;
// Reply bytes: 7-byte MBAP header, function code, pairing byte, then the status.
constexpr std::size_t reply_status_pos = 9;
constexpr std::size_t reply_values_pos = 10;
// Sizes for reserving a request's message: header, and the longest item records (a write
// item's value bytes come on top of its fixed part).
constexpr std::size_t message_header_size = 7;
constexpr std::size_t max_read_item_size = 10;
constexpr std::size_t max_write_item_size = 10;
// Message byte holding the first item's code byte.
constexpr std::size_t first_code_pos = 7;

// The transaction id a reply carries (MBAP bytes 0..1, big-endian).
unsigned reply_id(const receive_buffer& reply) {
  return unsigned{reply[0]} << 8 | reply[1];
}

// Byte address of an item inside its block; only the low 24 bits of the base offset count.
// Inline: the reads are at fixed positions of a fixed array, so their checks fold away.
inline uint32_t item_address(const read_comm& item) {
  wire::basic_le_reader<std::array<unsigned char, 6>> r(item.location, 2);
  uint32_t base = r.u16();
  base |= static_cast<uint32_t>(r.u8()) << 16;
  return base + item.element_offset + static_cast<uint32_t>(item.member_offset);
}

bool is_run_of_typed_elements(const read_comm& item) {
  return item.count >= 2 && item.read_format == format_from_type;
}

void put_message_header(wire::le_writer& w, unsigned char function, uint32_t table_address,
                        std::size_t item_count) {
  w.u8(0x00).u8(function).u32(table_address).u8(static_cast<uint8_t>(item_count));
}

unsigned char read_item_code(const read_comm& item,
                             const std::map<unsigned short, data_type>& data_types) {
  if (item.type_id == string_type)
    return static_cast<unsigned char>(read_comm::use_reading_defines_length_from_type(string_type));
  if (item.read_format < no_direct_format && !is_run_of_typed_elements(item))
    return item.read_format;
  auto found = data_types.find(item.type_id);
  if (found == data_types.end()) return item.read_format;
  return static_cast<unsigned char>(
      read_comm::use_reading_defines_length_from_type(found->second.element_type));
}

unsigned char write_item_code(const read_comm& item,
                              const std::map<unsigned short, data_type>& data_types) {
  if (item.type_id == string_type) return string_length_code;
  if (item.read_format != no_direct_format) return item.read_format;
  auto found = data_types.find(item.type_id);
  if (found == data_types.end()) return item.read_format;
  const uint16_t element = found->second.element_type;
  if (item.count < 2 && element != string_type)
    return static_cast<unsigned char>(read_comm::get_read_format_from_type(element));
  return static_cast<unsigned char>(read_comm::use_reading_defines_length_from_type(element));
}

std::size_t read_message_capacity(std::size_t item_count) {
  return message_header_size + max_read_item_size * item_count;
}

// Writes the read-variables message at out, which has room for read_message_capacity bytes;
// returns its size. Marks single_element on one-element items of an EBOOL array type.
std::size_t put_read_message(unsigned char* out, uint32_t table_address,
                             const std::map<unsigned short, data_type>& data_types,
                             read_comm* items, std::size_t count) {
  wire::le_span_writer w(out);
  w.u8(0x00).u8(read_variables).u32(table_address).u8(static_cast<uint8_t>(count));
  for (read_comm* item_at = items; item_at != items + count; ++item_at) {
    read_comm& item = *item_at;
    const uint32_t address = item_address(item);
    w.u8(read_item_code(item, data_types)).u8(item.location[0]).u8(item.location[1]).u8(0x01);
    w.u16(static_cast<uint16_t>(address >> 8));
    if (item.read_format == format_from_type && item.count == 1) {
      w.u8(0x01);
      auto found = data_types.find(item.type_id);
      if (found != data_types.end() && found->second.element_type == ebool_type)
        item.single_element = 1;
    }
    w.u8(static_cast<uint8_t>(address));
    if (item.read_format == no_direct_format || is_run_of_typed_elements(item)) w.u16(item.count);
  }
  return static_cast<std::size_t>(w.pos() - out);
}

}  // namespace

modbus_tcp_frame unity_process::create_read_request(unsigned short transaction, unsigned char,
                                                    bool&, std::vector<read_comm>& items, bool&) {
  wire::bytes message(read_message_capacity(items.size()));
  message.resize(
      put_read_message(message.data(), table_address, data_types, items.data(), items.size()));
  return unity_request(transaction, std::move(message));
}

modbus_tcp_frame unity_process::create_write_request(unsigned short transaction, unsigned char,
                                                     bool&, std::vector<read_comm> items) {
  wire::bytes message;
  message.reserve(message_header_size + max_write_item_size * items.size());
  wire::le_writer w(message);
  put_message_header(w, write_variables, table_address, items.size());
  for (const read_comm& item : items) {
    w.u8(write_item_code(item, data_types)).u8(item.location[0]).u8(item.location[1]);
    w.u32(item_address(item));
    // All items of one host request share one type, so the first item's code decides
    // for every item whether a count follows and whether values are sent as booleans.
    const unsigned char first_code = message.at(first_code_pos);
    if (first_code == format_from_type || (first_code >= 16 && first_code <= 20)) w.u16(item.count);
    for (unsigned char value : item.data)
      w.u8(first_code == 0 ? static_cast<uint8_t>(value != 0) : value);
  }
  return unity_request(transaction, std::move(message));
}

int unity_process::read(std::vector<read_comm>& items, std::vector<unsigned char>& values) {
  return send_read(items) ? receive_read(values) : 0;
}

bool unity_process::send_read(std::vector<read_comm>& items) {
  return send_read(items, items.size());
}

bool unity_process::send_read(std::vector<read_comm>& items, std::size_t count) {
  if (count > max_items) return false;
  if (state == state_write_ok || state == state_read_ok) state = state_ready;
  if (state != state_ready) {
    state = state_failed;
    return false;
  }
  // The same bytes as create_read_request(...).to_raw_data(), built in the session's kept
  // buffer (never shrunk, so only a larger request than any before allocates).
  const std::size_t capacity = unity_header_size + read_message_capacity(count);
  if (request_buffer_.size() < capacity) request_buffer_.resize(capacity);
  const std::size_t size = put_read_message(request_buffer_.data() + unity_header_size,
                                            table_address, data_types, items.data(), count);
  if (guard::on) drain_stale();
  put_unity_header(request_buffer_, transaction_counter, size);
  if (send_bytes(request_buffer_.data(), unity_header_size + size) == -1) {
    state = state_failed;
    return false;
  }
  return true;
}

int unity_process::receive_read(std::vector<unsigned char>& values) {
  receive_for_request();
  const receive_buffer& reply = reply_buffer_;
  if (trace::on && reply.size() >= 2 && reply_id(reply) != transaction_counter) {
    trace::emit("late-reply",
                "request_id=%u reply_id=%u late reply: the values are those of an earlier "
                "request",
                unsigned{transaction_counter}, unsigned{reply_id(reply)});
  }
  // Guarded: a reply too short for its status fails the round instead of raising.
  if (reply.empty() || (guard::on && reply.size() <= reply_status_pos) ||
      reply.at(reply_status_pos) != status_ok) {
    state = state_failed;
    // Guarded: the next request carries another id than the one left unanswered, so
    // that its late reply is told apart.
    if (guard::on && reply.empty()) ++transaction_counter;
    return 0;
  }
  values.assign(reply.begin() + reply_values_pos, reply.end());
  state = state_read_ok;
  ++transaction_counter;
  return 1;
}

int unity_process::write(std::vector<read_comm> items) {
  if (state == state_write_ok || state == state_read_ok) state = state_ready;
  if (state != state_ready) return 0;
  bool expect_reply = true;
  const modbus_tcp_frame request =
      create_write_request(transaction_counter, 2, expect_reply, items);
  if (guard::on) drain_stale();
  if (send_frame(request) == -1) return 0;
  if (!expect_reply) return 0;
  const std::vector<unsigned char> reply = guard::on ? matching_reply() : client_recv();
  if (reply.empty()) {
    state = state_write_no_reply;
    if (guard::on) ++transaction_counter;
    return 0;
  }
  int result = 0;
  if (guard::on && reply.size() <= reply_values_pos) {
    ++transaction_counter;
    return 0;
  }
  if (reply.at(reply_status_pos) == status_ok && reply.at(reply_values_pos) == 1) {
    result = 1;
    state = state_write_ok;
  }
  ++transaction_counter;
  return result;
}

bool unity_process::is_string_size_odd(unsigned short type_id) {
  auto found = data_types.find(type_id);
  if (found == data_types.end() || found->second.element_type != string_type) return false;
  return pares_array_indices_from_subscript(found->second.name).at(0) % 2 != 0;
}
