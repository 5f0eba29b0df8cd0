// Data dictionary download (Unity function 0x26): the data type list, the detail of
// every structure and array type, and the paged variables table.
#include <algorithm>
#include <utility>

#include "dictionary/type_sizes.h"
#include "unity/unity_process.h"
#include "unity/unity_request.h"
#include "wire/byte_cursor.h"
#include "wire/byte_window.h"
#include "wire/unity_constants.h"

namespace {

using dictionary::string_type;
using wire::array_detail;
using wire::structure_detail;
// What save_struct_detail returns while the structure goes on in another reply.
constexpr int structure_continues = structure_detail;
constexpr std::size_t error_reply_size = 11;
// Request message bytes that carry the structure continuation.
constexpr std::size_t detail_continuation_pos = 11;

void append_checked(wire::le_writer& w, const std::vector<unsigned char>& source, std::size_t n) {
  wire::require(source, 0, n);
  w.append(source.begin(), source.begin() + static_cast<std::ptrdiff_t>(n));
}

// The three dictionary requests share their start: list selector, then the handle; fill
// writes what follows.
template <typename Fill>
modbus_tcp_frame dictionary_request(unsigned short step, unsigned char list,
                                    const std::vector<unsigned char>& handle, Fill fill) {
  wire::bytes message;
  wire::le_writer w(message);
  w.u8(0x00).u8(0x26).u8(list).u8(0xFB).u8(0x03);
  append_checked(w, handle, 4);
  fill(w);
  return unity_request(step, std::move(message));
}

// n bytes of the raw Unity message from pos; the message must reach at least pos, and
// bytes past its end read as zero as they do in the zero-filled receive buffer.
std::vector<unsigned char> message_bytes(const unity_frame& frame, std::size_t pos, std::size_t n) {
  const std::vector<unsigned char>& message = frame.nodes.at(0).name;
  wire::require(message, pos);
  return wire::zero_padded(message, pos, n);
}

std::vector<unsigned char> le_u16_bytes(uint16_t v) {
  std::vector<unsigned char> out;
  wire::le_writer(out).u16(v);
  return out;
}

std::vector<unsigned char> le_u32_bytes(uint32_t v) {
  std::vector<unsigned char> out;
  wire::le_writer(out).u32(v);
  return out;
}

}  // namespace

modbus_tcp_frame unity_process::create_get_data_type_request(
    unsigned short step, unsigned char, bool&, const std::vector<unsigned char>& continuation) {
  return dictionary_request(step, 0x03, dictionary_handle,
                            [&](wire::le_writer& w) { append_checked(w, continuation, 4); });
}

modbus_tcp_frame unity_process::create_get_data_type_detail_request(
    unsigned short step, unsigned char, bool&, const std::vector<unsigned char>& type_id) {
  return dictionary_request(step, 0x02, dictionary_handle, [&](wire::le_writer& w) {
    append_checked(w, type_id, 2);
    w.u32(0);
  });
}

modbus_tcp_frame unity_process::create_browse_request(unsigned short step, unsigned char, bool&) {
  return dictionary_request(step, 0x02, dictionary_handle, [&](wire::le_writer& w) {
    w.u8(0xFF).u8(0xFF);
    append_checked(w, browse_address, 4);
  });
}

namespace {

std::vector<unity_frame> decode_reply(unity_process& session,
                                      const std::vector<unsigned char>& reply) {
  std::vector<unity_frame> frames;
  // The decoders read each page's raw message, not the parsed records.
  session.impl->get_strategy(reply)->get_commands_without_records(frames);
  return frames;
}

}  // namespace

void unity_process::get_data_type_list() {
  data_types.clear();
  struct_members.clear();
  if (state != state_identified) return;
  std::vector<unsigned char> continuation(4, 0);
  for (;;) {
    bool more = true;
    const modbus_tcp_frame request =
        create_get_data_type_request(transaction_counter, 2, more, continuation);
    if (send_frame(request) == -1) return;
    std::vector<unity_frame> frames;
    if (more) {
      std::vector<unsigned char> reply = client_recv();
      // A silent controller gets the same request again, without limit; only a failing
      // send (the host stopped the session) ends the wait.
      while (reply.empty()) {
        if (send_frame(request) == -1) return;
        reply = client_recv();
      }
      frames = decode_reply(*this, reply);
    }
    if (!frames.empty()) {
      save_data_type_info(frames);
      continuation = message_bytes(frames.front(), 2, 4);
    }
    ++transaction_counter;
    if (wire::le_reader(continuation).u16() == 0) return;
  }
}

void unity_process::get_data_type_detail() {
  if (state != state_identified || data_types.empty()) return;
  for (data_type_entry& entry : data_types) {
    bool more = true;
    modbus_tcp_frame request = create_get_data_type_detail_request(transaction_counter, 2, more,
                                                                   le_u16_bytes(entry.first));
    if (send_frame(request) == -1) return;
    std::vector<unsigned char> reply = client_recv();
    if (reply.empty()) continue;
    const std::vector<unity_frame> frames = decode_reply(*this, reply);
    if (frames.empty()) {
      // Types the controller refuses to detail are its strings.
      if (reply.size() == error_reply_size) entry.second.element_type = string_type;
    } else if (frames.front().record_format == array_detail) {
      save_array_detail(frames, entry);
      // An array of structures shares its element type's member list.
      auto members = struct_members.find(entry.second.element_type);
      if (members != struct_members.end()) struct_members[entry.first] = members->second;
    } else if (frames.front().record_format == structure_detail) {
      std::vector<data_type> pending;
      std::vector<unity_frame> page = frames;
      while (save_struct_detail(page, entry, pending) == structure_continues) {
        const std::vector<unsigned char> next = message_bytes(page.front(), 3, 2);
        std::copy(next.begin(), next.end(),
                  request.pdu.data.begin() + static_cast<std::ptrdiff_t>(detail_continuation_pos));
        if (send_frame(request) == -1 || !more) break;
        // No reply to a continuation is decoded all the same: the empty buffer is refused
        // by the framing (std::out_of_range), so a lost page is not passed over unseen.
        page = decode_reply(*this, client_recv());
      }
    }
    ++transaction_counter;
  }
}

bool unity_process::browse() {
  if (state == state_identified) {
    browse_address.assign(4, 0);
    for (;;) {
      bool more = true;
      const modbus_tcp_frame request = create_browse_request(transaction_counter, 2, more);
      if (send_frame(request) == -1 || !more) return false;
      std::vector<unsigned char> reply = client_recv();
      while (reply.empty()) {
        if (send_frame(request) == -1) return false;
        reply = client_recv();
      }
      std::vector<unity_frame> frames = decode_reply(*this, reply);
      if (frames.empty()) return false;
      ++transaction_counter;
      // The decoder gets the page itself, not a copy of its hundred records: nothing
      // but the next address is read from it afterwards.
      const uint32_t next_address = frames.front().next_address;
      save_table_info(std::move(frames));
      browse_address = le_u32_bytes(next_address);
      if (next_address == 0) break;
    }
  }
  state = state_ready;
  if (!is_bme_p58()) get_file_handle_pos();
  return true;
}
