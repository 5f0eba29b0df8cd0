#include <stdexcept>

#include "unity/unity_process.h"
#include "wire/byte_cursor.h"
#include "wire/byte_window.h"
#include "wire/unity_constants.h"

namespace {
using wire::status_error;
using wire::status_ok;
using wire::unity_function_code;
constexpr std::size_t unity_data_start = 8;
}  // namespace

void unity_process::PRIVATE::create_modbus_tcp_frame_to_source(std::vector<unsigned char> raw) {
  frames.clear();
  wire::be_reader in(raw);
  modbus_tcp_frame frame;
  frame.transaction_id = in.u16();
  frame.protocol_id = in.u16();
  frame.length = in.u16();
  frame.unit_id = in.u8();
  frame.pdu.function_code = in.u8();
  // A frame must carry at least one Unity byte. The MBAP length is kept but not used to
  // bound the data: everything received after the header belongs to this one frame.
  wire::require(raw, unity_data_start);
  frame.pdu.data.assign(raw.begin() + unity_data_start, raw.end());
  frames.push_back(std::move(frame));
}

bool unity_process::PRIVATE::is_request(std::vector<unsigned char> raw) {
  if (raw.at(7) != unity_function_code) {
    return false;
  }
  const unsigned char code_or_status = raw.at(9);
  return code_or_status != status_ok && code_or_status != status_error;
}

boost::shared_ptr<IUnity_message_strategy> unity_process::PRIVATE::get_strategy(
    std::vector<unsigned char> raw) {
  create_modbus_tcp_frame_to_source(raw);
  if (is_request(raw)) {
    return CommStrategyFactory::get_request_strategy(frames, raw);
  }
  return CommStrategyFactory::get_response_strategy(frames, raw);
}
