// The values of host requests and results as text: a result's 16-bit units turned back
// into a value by PLC type, and a value text turned into the words of a write.
#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace panelhost {

// Turns the 16-bit units of a host result back into a value text, by PLC type.
// count elements of type code from units (as the driver fills _input_data_.result_words).
// Arrays print as "[a, b, c]"; a STRING prints quoted, up to its first zero character.
std::string format_value(uint8_t code, const std::vector<uint16_t>& units, std::size_t count);

// Elements read through bit addressing: each unit is 65535 (set) or 0 (clear).
std::string format_bits(const std::vector<uint16_t>& units, std::size_t count);

// Turns a value text into the write data of a host request, by PLC type.
struct bad_value : std::invalid_argument {
  using std::invalid_argument::invalid_argument;
};

struct write_data {
  std::vector<uint16_t> words;  // _gui_request_.write_words; write_count is their number
  uint8_t bit_value = 0;        // BOOL and BitArray: the bit to write
};

// string_length: declared length of a STRING (the text is zero-padded to it).
// Throws bad_value when the text is not a value of the type.
write_data encode_value(uint8_t code, const std::string& text, std::size_t string_length = 0);

// The value of a whole request of count elements: one value for one element, the list
// form "[a, b, c]" (as read prints it) with exactly count values for an array. A partial
// array write is refused: the driver writes from the first element.
write_data encode_request_value(uint8_t code, const std::string& text, std::size_t count);

}  // namespace panelhost
