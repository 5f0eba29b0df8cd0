#include "tag_index/tag_record.h"

#include <cstring>

bool offline_stTag_578::operator<(const offline_stTag_578& other) const {
  const auto index = static_cast<int32_t>(request_index);
  const auto other_index = static_cast<int32_t>(other.request_index);
  if (index != other_index) {
    return index < other_index;
  }
  if (request_word != other.request_word) {
    return request_word < other.request_word;
  }
  if (request_byte != other.request_byte) {
    return request_byte < other.request_byte;
  }
  if (bit_number != other.bit_number) {
    return bit_number < other.bit_number;
  }
  return std::strcmp(name ? name : "", other.name ? other.name : "") < 0;
}
