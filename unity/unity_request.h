// The Modbus TCP frame that carries one Unity request message (function 0x5A).
#pragma once

#include <cstdint>
#include <vector>

#include "unity/modbus_tcp_frame.h"

// Length covers unit id, function code and message, as the builders always set it.
modbus_tcp_frame unity_request(uint16_t transaction, std::vector<unsigned char> message);
