// A Modbus PDU: function code and the Unity message that follows it.
#pragma once

#include <cstdint>
#include <vector>

struct modbus_frame {
  uint8_t function_code = 0;  // always 0x5A here
  std::vector<unsigned char> data;
};
