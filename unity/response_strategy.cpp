#include <algorithm>
#include <iterator>

#include "unity/message_strategy.h"
#include "wire/byte_cursor.h"
#include "wire/byte_window.h"
#include "wire/unity_constants.h"

namespace {

using wire::named_records;
using wire::status_ok;
using wire::unity_function_code;
constexpr unsigned short first_record = 9;

constexpr std::size_t header_size = 9;

// Reply header fields: status word [0..1], record format [2], next address [3..6],
// record count [7..8]. The raw-message node is added by the caller. An 8-byte message
// (MBAP length 10) ends inside the record count: its missing bytes read as 0, as they do
// in the zero-filled receive buffer.
unity_frame read_reply_header(const modbus_tcp_frame& frame) {
  const auto& data = frame.pdu.data;
  unity_frame out;
  out.function_code = frame.pdu.function_code;
  const wire::bytes header = wire::zero_padded(data, 0, header_size);
  wire::le_reader in(header);
  out.status_word = in.u16();
  out.record_format = in.u8();
  out.next_address = in.u32();
  out.record_count = in.u16();
  return out;
}

}  // namespace

response_strategy::response_strategy(const std::vector<modbus_tcp_frame>& frames,
                                     const std::vector<unsigned char>& raw)
    : frames_(frames), raw_(raw) {}

void response_strategy::get_commands(std::vector<unity_frame>& out) {
  split(out, true);
}

// The dictionary download reads every page from its raw message: a node per record, each
// with its name, would be built and freed unread.
void response_strategy::get_commands_without_records(std::vector<unity_frame>& out) {
  split(out, false);
}

void response_strategy::split(std::vector<unity_frame>& out, bool with_records) {
  unsigned short cursor = first_record;  // not reset between frames
  for (std::size_t index = 0; index < frames_.size(); ++index) {
    const modbus_tcp_frame& frame = frames_[index];
    if (frame.pdu.function_code != unity_function_code) {
      return;
    }
    const auto& data = frame.pdu.data;
    if (data.at(1) != status_ok) {
      return;
    }
    if (frame.length <= first_record) {
      continue;
    }
    unity_frame reply = read_reply_header(frame);
    last_address = reply.next_address;
    // Room for the records at once: a record takes at least two bytes of the data.
    const std::size_t records = with_records ? reply.record_count : 0;
    reply.nodes.reserve(frames_.size() + std::min(records, data.size()));
    reply.nodes.resize(frames_.size());
    // The whole Unity message as the MBAP length announces it. Bytes that have not arrived
    // (a reply split over two receives) read as 0, as in the zero-filled receive buffer.
    reply.nodes[index].name = wire::zero_padded(data, 0, frame.length - 2u);
    const bool with_name = reply.record_format == named_records;
    for (std::size_t read = 0; read < records && cursor < data.size(); ++read) {
      reply.nodes.push_back(get_next_node_data(data, cursor, with_name));
    }
    out.push_back(std::move(reply));
  }
}

void response_strategy::on_set_comm_successed(modbus_tcp_frame& frame) {
  frame.pdu.function_code = unity_function_code;
  frame.length = 0;
  ++frame.transaction_id;
  if (last_address == 0) {
    return;
  }
  static const unsigned char browse_request[] = {0x00, 0x26, 0x02, 0xFB, 0x03, 0x64,
                                                 0x10, 0xB1, 0x07, 0xFF, 0xFF};
  auto& data = frame.pdu.data;
  data.insert(data.end(), std::begin(browse_request), std::end(browse_request));
  data.back() = static_cast<unsigned char>(last_address);
  data.push_back(0x26);
  frame.length = static_cast<uint16_t>(data.size() + 2);
}

boost::shared_ptr<IUnity_message_strategy> CommStrategyFactory::get_response_strategy(
    const std::vector<modbus_tcp_frame>& frames, const std::vector<unsigned char>& raw) {
  return boost::shared_ptr<IUnity_message_strategy>(new response_strategy(frames, raw));
}
