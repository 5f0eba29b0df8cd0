// The PLC type codes a host request can name, with their names and sizes.
#pragma once

#include <cstdint>
#include <string>

#include "wire/plc_types.h"

namespace panelhost {

using plc_type = wire::plc_type;

// nullptr when the code is not one of the driver's type codes.
const plc_type* find_plc_type(uint8_t code);
// Accepts a type name (any case) or a decimal code; throws std::invalid_argument.
const plc_type& parse_plc_type(const std::string& text);
// The type's name in capitals, or "type <code>" for an unknown code.
std::string plc_type_name(uint8_t code);

bool is_bit_type(uint8_t code);  // BOOL and BitArray: one bit value per element

}  // namespace panelhost
