// The PLC type codes a host request can name: the driver's rows (names, sizes, units)
// and the columns only the host tool needs to read and write values of each type.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>

#include "wire/plc_types.h"

namespace panelhost {

using plc_type = wire::plc_type;

// How a value of the type is shown and read back.
enum class display : uint8_t {
  truth,    // TRUE / FALSE
  decimal,  // integers and reals
  hex,      // 16#..., two digits a byte: the bit-string types
  text,     // quoted characters
};

// The host tool's columns of one row of wire::plc_types.
struct value_form {
  uint8_t code;
  bool is_signed;
  bool floating;
  display shown;
};

// nullptr for a code the driver does not know.
const value_form* find_value_form(uint8_t code);

// Accepts a type name (any case) or a decimal code; throws std::invalid_argument.
const plc_type& parse_plc_type(const std::string& text);
// The type's name in capitals, or "type <code>" for an unknown code.
std::string plc_type_name(uint8_t code);

bool is_bit_type(uint8_t code);  // BOOL and BitArray: one bit value per element

// Case-insensitive comparisons of type names and keywords go through this one.
std::string upper(std::string text);

// The bits of one value as another type of the same size (REAL <-> its 32 bits).
template <typename To, typename From>
To bit_cast(From from) {
  static_assert(sizeof(To) == sizeof(From), "same size");
  To to;
  std::memcpy(&to, &from, sizeof to);
  return to;
}

}  // namespace panelhost
