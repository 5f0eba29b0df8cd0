#include "unity/message_strategy.h"

boost::shared_ptr<IUnity_message_strategy> CommStrategyFactory::get_request_strategy(
    const std::vector<modbus_tcp_frame>& frames, std::vector<unsigned char>& raw) {
  return boost::shared_ptr<IUnity_message_strategy>(new request_strategy(frames, raw));
}

boost::shared_ptr<IUnity_message_strategy> CommStrategyFactory::get_response_strategy(
    const std::vector<modbus_tcp_frame>& frames, const std::vector<unsigned char>& raw) {
  return boost::shared_ptr<IUnity_message_strategy>(new response_strategy(frames, raw));
}
