#include "unity/unity_request.h"

#include <utility>

#include "wire/unity_constants.h"

modbus_tcp_frame unity_request(uint16_t transaction, std::vector<unsigned char> message) {
  modbus_tcp_frame frame;
  frame.transaction_id = transaction;
  frame.pdu.function_code = wire::unity_function_code;
  frame.pdu.data = std::move(message);
  frame.length = static_cast<uint16_t>(frame.pdu.data.size() + 2);
  return frame;
}
