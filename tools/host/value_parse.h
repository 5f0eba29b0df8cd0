// Turns a value text into the write data of a host request, by PLC type.
#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace panelhost {

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
