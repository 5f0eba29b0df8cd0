// The Modbus TCP frame that carries one Unity request message (function 0x5A).
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "unity/modbus_tcp_frame.h"

// MBAP header and function code, in front of the Unity message.
constexpr std::size_t unity_header_size = 8;

// Length covers unit id, function code and message, as the builders always set it.
modbus_tcp_frame unity_request(uint16_t transaction, std::vector<unsigned char> message);

// Writes into raw[0..8) the header that unity_request(transaction, message).to_raw_data()
// puts in front of a message of message_size bytes, for a message built in place behind it.
void put_unity_header(std::vector<unsigned char>& raw, uint16_t transaction,
                      std::size_t message_size);
