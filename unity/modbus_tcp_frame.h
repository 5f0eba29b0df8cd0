// A Modbus TCP ADU (MBAP header + PDU) and its encoder.
#pragma once

#include <cstdint>
#include <vector>

// A Modbus PDU: function code and the Unity message that follows it.
struct modbus_frame {
  uint8_t function_code = 0;  // always 0x5A here
  std::vector<unsigned char> data;
};

struct modbus_tcp_frame {
  uint16_t transaction_id = 0;
  uint16_t protocol_id = 0;
  uint16_t length = 0;  // bytes after the length field; set by the builders, never recomputed
  uint8_t unit_id = 0;
  modbus_frame pdu;

  // Replaces the PDU; the header fields stay as they are.
  void create_modbus(const modbus_frame& frame);
  // MBAP header big-endian, then function code and data: 8 + data.size() bytes.
  std::vector<unsigned char> to_raw_data() const;
};
