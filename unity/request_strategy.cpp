#include <stdexcept>

#include "unity/message_strategy.h"
#include "wire/unity_constants.h"

namespace {
using wire::status_error;
using wire::status_ok;
using wire::unity_function_code;
}  // namespace

request_strategy::request_strategy(const std::vector<modbus_tcp_frame>& frames,
                                   std::vector<unsigned char>& raw)
    : frames_(frames), raw_(raw) {}

void request_strategy::get_commands(std::vector<unity_frame>& /*out*/) {
  if (frames_.empty() || frames_.front().pdu.function_code != unity_function_code) {
    return;
  }
  const unsigned char code_or_status = frames_.front().pdu.data.at(1);
  if (code_or_status == status_ok || code_or_status == status_error) {
    return;
  }
  // A controller never sends this client a request, and none is ever served.
  throw std::out_of_range("request_strategy: Unity requests are not served");
}

void request_strategy::on_set_comm_successed(modbus_tcp_frame& /*frame*/) {}

boost::shared_ptr<IUnity_message_strategy> CommStrategyFactory::get_request_strategy(
    const std::vector<modbus_tcp_frame>& frames, std::vector<unsigned char>& raw) {
  return boost::shared_ptr<IUnity_message_strategy>(new request_strategy(frames, raw));
}
