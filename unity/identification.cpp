// Identification: the eleven fixed exchanges that identify the controller, and the
// file-handle exchange that fetches the table address used by variable access.
#include "unity/unity_process.h"
#include "unity/unity_request.h"
#include "wire/byte_cursor.h"
#include "wire/byte_window.h"

namespace {

constexpr int init_steps = 11;
// Reply bytes are counted in the whole received buffer (MBAP header included).
constexpr std::size_t reply_transaction_low = 1;
constexpr std::size_t reply_p58_table_address = 26;
constexpr std::size_t reply_table_address = 16;
constexpr unsigned char plc_identification_step = 1;
constexpr unsigned char dictionary_position_step = 4;
constexpr uint16_t after_plc_information_step = 10;

// The u32 at pos of a reply that must reach at least pos. The receive buffer behind a
// reply is zero-filled, so bytes past its end read as zero.
uint32_t reply_u32(const std::vector<unsigned char>& reply, std::size_t pos) {
  wire::require(reply, pos);
  return wire::le_reader(wire::zero_padded(reply, pos, 4)).u32();
}

std::vector<unsigned char> init_message(unsigned short step, unsigned char code) {
  static const std::vector<unsigned char> read_memory_block_30 = {
      0x00, 0x20, 0x01, 0x30, 0x00, 0x00, 0x00, 0x00, 0x00, 0x20, 0x00};
  switch (step) {
    case 1:
      return {0x00, code};
    case 2:
      return {0x00, 0x01, 0x00};
    case 3:
      return {0x00, 0x03, 0x00};
    case 4:
      return read_memory_block_30;
    case 5:
      return {0x00, 0x03, 0x00};
    case 6:
      return {0x00, 0x20, 0x01, 0x13, 0x00, 0x41, 0x00, 0x00, 0x00, 0x18, 0x00};
    case 7:
      return {0x00, 0x03, 0x04};
    case 8:
      return {0x00, 0x03, 0x03};
    case 9:
      return {0x00, 0x04};
    case 10:
      return read_memory_block_30;
    case 11:
      return {0x00, 0x07, 0x01, 0x1A, 0x00, 0x00};
    default:
      return {};
  }
}

}  // namespace

modbus_tcp_frame unity_process::create_init_request(unsigned short step, unsigned char code,
                                                    bool&) {
  modbus_tcp_frame frame = unity_request(step, init_message(step, code));
  // Steps past the table go out as a bare header with a zero length field.
  if (frame.pdu.data.empty()) frame.length = 0;
  return frame;
}

bool unity_process::initial_device() {
  for (int i = 0; i < init_steps; ++i) {
    bool more = true;
    const modbus_tcp_frame request = create_init_request(transaction_counter, 2, more);
    const long sent = send_frame(request);
    ++transaction_counter;
    if (sent == -1 || !more) return false;
    std::vector<unsigned char> reply = client_recv();
    if (reply.empty()) return false;
    std::vector<unity_frame> frames;
    impl->get_strategy(reply)->get_commands(frames);
    // A refused step carries nothing the session needs; the sequence goes on without it.
    if (frames.empty()) continue;
    if (transaction_counter == after_plc_information_step && is_bme_p58())
      table_address = 2 * reply_u32(reply, reply_p58_table_address);
    // The decoder is chosen by the transaction id the controller echoed.
    const unsigned char echoed_step = reply.at(reply_transaction_low);
    if (echoed_step == plc_identification_step)
      save_plc_type(frames);
    else if (echoed_step == dictionary_position_step)
      save_array_type_pos(frames);
  }
  state = state_identified;
  return true;
}

modbus_tcp_frame unity_process::get_file_handle_request(unsigned short step, unsigned char, bool&) {
  const auto& a = variable_address;
  // The address bytes go out in this order on purpose (a2 last, a5 never sent).
  return unity_request(
      step, {0x00, 0x22, 0x7E, 0x8B, 0x4B, 0x05, 0x01, 0x01, a[0], a[1], 0x01, a[3], a[4], a[2]});
}

bool unity_process::get_file_handle_pos() {
  if (state != state_ready) return false;
  bool more = true;
  const modbus_tcp_frame request = get_file_handle_request(transaction_counter, 2, more);
  if (send_frame(request) == -1) return false;
  if (!more) return true;
  const std::vector<unsigned char> reply = client_recv();
  if (reply.empty()) return true;
  table_address = reply_u32(reply, reply_table_address);
  ++transaction_counter;
  return true;
}
