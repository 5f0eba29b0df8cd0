#include "driver/filter_steps.h"

#include <cstring>
#include <string>

#include "driver/trace_events.h"
#include "tag_index/tag_names.h"
#include "trace/trace.h"
#include "wire/byte_cursor.h"

namespace filter_steps {

unitydrv_result filter_result() {
  unitydrv_result result{};
  result.byte_3 = 8;
  return result;
}

void rename_bit_array_element(device_context& device, offline_stTag_578& tag) {
  const char* source = tag.name;
  // Room for the name plus a rewritten subscript of up to eleven characters.
  std::vector<char> buffer(std::strlen(source) + 16, '\0');
  if (tag_plc_tools_function_578::OverrideTagNameForNewArrayIndex(
          source, buffer.data(), tag.request_word, tag.request_byte) == 0) {
    return;
  }
  const std::string& element = *device.element_names.insert(std::string(buffer.data())).first;
  tag.name = element.c_str();
  tag.request_index = device.tag_table.GetTagIndexfromName(tag.name);
}

void write_bit(std::map<offline_stTag_578, unsigned long long>& values,
               const offline_stTag_578& tag, bool set) {
  const unsigned bit = static_cast<uint8_t>(tag.bit_number);
  const uint32_t mask = bit < 32 ? uint32_t{1} << bit : 0;
  unsigned long long& value = values[tag];
  uint32_t low = static_cast<uint32_t>(value);
  uint32_t high = static_cast<uint32_t>(value >> 32);
  if (set) {
    low |= mask;
    if (mask & 0x80000000u) high = 0xFFFFFFFFu;
  } else {
    low &= ~mask;
    if (bit == 31) high = 0;
  }
  value = static_cast<unsigned long long>(high) << 32 | low;
}

std::vector<unsigned char> write_image(const _gui_request_& request, uint8_t type_code) {
  if (type_code == UNITYDRV_TYPE_BOOL || type_code == UNITYDRV_TYPE_BITARRAY) {
    return {request.write.bit.write_bit_value};
  }
  constexpr std::size_t capacity = sizeof(request.write_words) / sizeof(request.write_words[0]);
  const std::size_t words = request.write.write_count;
  const bool one_byte = type_code == UNITYDRV_TYPE_SINT || type_code == UNITYDRV_TYPE_BYTE ||
                        type_code == UNITYDRV_TYPE_USINT;
  std::vector<unsigned char> image;
  wire::le_writer out(image);
  for (std::size_t i = 0; i < words && i < capacity; ++i) {
    const uint16_t word = request.write_words[i];
    if (one_byte) {
      out.u8(static_cast<uint8_t>(word));
    } else {
      out.u16(word);
    }
  }
  // The buffer is sized for two bytes per word whatever the type; the rest stays zero.
  image.resize(words * 2, 0);
  return image;
}

write_target prepare_write(tag_driver_offline_578& driver, device_context& device,
                           const _gui_request_& request) {
  write_target target;
  target.count = driver.offline_FillTagStruct(&device.tag_table, &target.tag, &request.ref);
  if (target.tag.request_byte == type_bit_array) rename_bit_array_element(device, target.tag);
  if (static_cast<uint8_t>(target.tag.bit_number) != no_bit) {
    write_bit(device.tag_values, target.tag, request.write.bit.write_bit_value != 0);
    if (trace::on && device.offline_mode == 0) trace_events::bit_kept(target.tag, request);
    target.done = true;
  }
  return target;
}

}  // namespace filter_steps
