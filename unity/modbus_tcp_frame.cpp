#include "unity/modbus_tcp_frame.h"

#include <algorithm>

#include "wire/byte_cursor.h"

namespace {
constexpr std::size_t mbap_and_function_size = 8;
}

void modbus_tcp_frame::create_modbus(const modbus_frame& frame) {
  pdu = frame;
}

std::vector<unsigned char> modbus_tcp_frame::to_raw_data() const {
  std::vector<unsigned char> raw(mbap_and_function_size + pdu.data.size(), 0);
  wire::be_writer out(raw);
  out.u16(transaction_id);
  out.u16(protocol_id);
  out.u16(length);  // as the builder set it: never recomputed here
  out.u8(unit_id);
  out.u8(pdu.function_code);
  std::copy(pdu.data.begin(), pdu.data.end(), raw.begin() + static_cast<long>(out.pos()));
  return raw;
}
