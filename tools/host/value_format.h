// Turns the 16-bit units of a host result back into a value text, by PLC type.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace panelhost {

// count elements of type code from units (as the driver fills _input_data_.result_words).
// Arrays print as "[a, b, c]"; a STRING prints quoted, up to its first zero character.
std::string format_value(uint8_t code, const std::vector<uint16_t>& units, std::size_t count);

// Elements read through bit addressing: each unit is 65535 (set) or 0 (clear).
std::string format_bits(const std::vector<uint16_t>& units, std::size_t count);

}  // namespace panelhost
