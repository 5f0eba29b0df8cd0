// Steps that the online and offline filters of the driver object share: element sizes,
// the result record, BitArray element renaming, the shadow bit write and the write data
// image. Kept apart from the filters so that neither path calls into the other.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "driver/device_context.h"
#include "driver/tag_driver_offline_578.h"
#include "tag_index/tag_record.h"
#include "tag_index/tag_table.h"
#include "unitydrv/unitydrv.h"
#include "wire/plc_types.h"

namespace filter_steps {

constexpr uint8_t no_bit = 255;
constexpr uint8_t type_bit_array = UNITYDRV_TYPE_BITARRAY;
constexpr uint8_t type_string = UNITYDRV_TYPE_STRING;

// Bytes per element of a PLC type code; 0 for codes the driver does not know.
// Indexed by code in the type table: it runs for every request.
using wire::element_size;

// The device behind a host handle (null stays null).
inline device_context* device_of(void* handle) {
  return static_cast<device_context*>(handle);
}

// What OutputFilterEx returns: byte 3 = 8, everything else 0.
unitydrv_result filter_result();

// Points the tag at the controller element that holds its bit (kind 211 counts bits):
// the element's name is interned in the device so value-map keys can keep pointing at it.
void rename_bit_array_element(device_context& device, offline_stTag_578& tag);

// Sets or clears the tag's bit in its shadow value in the device's value map.
void write_bit(std::map<offline_stTag_578, unsigned long long>& values,
               const offline_stTag_578& tag, bool set);

// The tag and element count a write request names.
struct write_target {
  offline_stTag_578 tag;
  uint16_t count = 0;
  bool done = false;  // a bit write, already carried out in the shadow value
};

// Fills the tag of a write request and renames a BitArray element. A bit inside a word
// only changes the shadow value, here, and nothing goes to the controller.
write_target prepare_write(tag_driver_offline_578& driver, device_context& device,
                           const _gui_request_& request);

// Fills the tag of a read request and the head for its result slot; returns the element
// count. The tag then names the whole unit (the input filter picks the bit out), and for
// a BitArray of more than one element the element that holds the first bit.
// Inline, so that the read cycle's translation unit may devirtualize the fill.
inline uint16_t prepare_read(tag_driver_offline_578& driver, device_context& device,
                             const _gui_request_& request, slot_head& head,
                             offline_stTag_578& tag) {
  const uint16_t n = driver.offline_FillTagStruct(&device.tag_table, &tag, &request.ref);
  head.type_code = tag.request_byte;
  head.bit_number = static_cast<uint8_t>(tag.bit_number);
  head.element_count = n;
  tag.bit_number = static_cast<int8_t>(no_bit);
  if (tag.request_byte == type_bit_array && n > 1) rename_bit_array_element(device, tag);
  return n;
}

// The bytes a write of request's data sends for one element run of type type_code.
std::vector<unsigned char> write_image(const _gui_request_& request, uint8_t type_code);

// What the first host result holds before any item is handled.
inline void preset_first_result(_input_data_& result) {
  result.result_status = 0;
  result.result_code = 5;
  result.request_id = 0;
}

}  // namespace filter_steps
