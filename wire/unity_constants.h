// Facts of the Unity wire format that the driver, the tag index and the host tool share.
// The simulator keeps its own copy on purpose: it shares no protocol code with the driver.
#pragma once

#include <cstdint>

namespace wire {

// Modbus function code that carries every Unity message.
constexpr uint8_t unity_function_code = 0x5A;

// Second byte of a reply's message.
constexpr uint8_t status_ok = 0xFE;
constexpr uint8_t status_error = 0xFD;

// Record formats of a dictionary reply (third byte of its message).
constexpr uint8_t structure_detail = 2;
constexpr uint8_t array_detail = 4;
constexpr uint8_t named_records = 9;

}  // namespace wire
