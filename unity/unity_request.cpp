#include "unity/unity_request.h"

#include <utility>

#include "wire/byte_cursor.h"
#include "wire/unity_constants.h"

modbus_tcp_frame unity_request(uint16_t transaction, std::vector<unsigned char> message) {
  modbus_tcp_frame frame;
  frame.transaction_id = transaction;
  frame.pdu.function_code = wire::unity_function_code;
  frame.pdu.data = std::move(message);
  frame.length = static_cast<uint16_t>(frame.pdu.data.size() + 2);
  return frame;
}

void put_unity_header(std::vector<unsigned char>& raw, uint16_t transaction,
                      std::size_t message_size) {
  wire::be_writer out(raw);
  out.u16(transaction);
  out.u16(0);  // protocol id
  out.u16(static_cast<uint16_t>(message_size + 2));
  out.u8(0);  // unit id
  out.u8(wire::unity_function_code);
}
