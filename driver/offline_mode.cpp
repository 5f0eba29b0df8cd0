// A device started offline: no controller; written values live in the device's value map,
// keyed per element, and reads are served from it.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <vector>

#include "driver/device_context.h"
#include "driver/filter_steps.h"
#include "driver/tag_driver_offline_578.h"
#include "wire/byte_cursor.h"
#include "wire/plc_types.h"

namespace {

using filter_steps::element_size;

// Element k of a whole-value write: its type's element size of bytes, little-endian, taken
// from write_words on, for every type (a BOOL or BitArray element is one byte there) and
// whatever write_count says. The bytes run on through the rest of the request record; past
// its end they read 0.
unsigned long long element_value(const _gui_request_& request, unsigned size, unsigned k) {
  constexpr std::size_t begin = offsetof(_gui_request_, write_words);
  constexpr std::size_t available = sizeof(_gui_request_) - begin;
  const unsigned char* words = reinterpret_cast<const unsigned char*>(&request) + begin;
  std::array<unsigned char, 8> value{};
  const std::size_t first = static_cast<std::size_t>(k) * size;
  for (std::size_t b = 0; b < size && first + b < available; ++b) value[b] = words[first + b];
  return wire::basic_le_reader<std::array<unsigned char, 8>>(value).u64();
}

// The key of element k of the request: the tag with its array index advanced by k.
offline_stTag_578 element_key(const offline_stTag_578& tag, unsigned k) {
  offline_stTag_578 key = tag;
  key.request_word = static_cast<uint16_t>(tag.request_word + k);
  return key;
}

void write_offline(tag_driver_offline_578& driver, device_context& device,
                   const _gui_request_& request) {
  const filter_steps::write_target target = filter_steps::prepare_write(driver, device, request);
  if (target.done) return;
  const offline_stTag_578& tag = target.tag;
  const uint16_t n = target.count;
  const unsigned size = element_size(tag.request_byte);
  for (unsigned k = 0; k < n; ++k) {
    device.tag_values[element_key(tag, k)] = element_value(request, size, k);
  }
}

void read_offline(tag_driver_offline_578& driver, device_context& device, _gui_request_* requests,
                  int count) {
  for (int i = 0; i < count; ++i) {
    offline_stTag_578 tag;
    slot_head head;
    const uint16_t n = filter_steps::prepare_read(driver, device, requests[i], head, tag);
    const auto position = static_cast<std::size_t>(i);
    device.tag_table.slots.set_head(position, head);
    // A long request runs on past its own slot.
    const unsigned units = wire::result_units(tag.request_byte);
    const bool known = units != 0;
    const std::size_t room = known ? std::size_t{n} * units * 2 : 0;
    wire::bounded_le_writer out = device.tag_table.slots.overwrite(position, room);
    for (unsigned k = 0; k < n; ++k) {
      // Never written reads as 0, and leaves a 0 entry behind.
      const unsigned long long value = device.tag_values[element_key(tag, k)];
      if (known) out.units(value, units);
    }
  }
}

}  // namespace

unitydrv_result tag_driver_offline_578::off_line_outputfilter(_gui_request_* requests, int count) {
  const unitydrv_result result = filter_steps::filter_result();
  if (requests == nullptr) return result;
  device_context* device = filter_steps::device_of(requests[0].device_handle);
  if (device == nullptr) return result;
  const uint8_t kind = requests[0].request_kind;
  if (kind == 1 || kind == 2) {
    write_offline(*this, *device, requests[0]);
    return result;
  }
  read_offline(*this, *device, requests, count);
  // Offline marks a read as done with 1 in byte 8, where the online path leaves 0.
  std::memset(requests[0].status, 0, 4);
  requests[0].status[4] = 1;
  return result;
}

void tag_driver_offline_578::off_line_inputFilter(_input_data_* results, _frame_data_*,
                                                  _system_info* infos, int count) {
  if (results == nullptr || infos == nullptr) return;
  device_context* device = filter_steps::device_of(infos[0].device_handle);
  if (device == nullptr) return;
  filter_steps::preset_first_result(results[0]);
  if (infos[0].info_valid == 0 || count < 1) return;
  device->tag_table.slots.deliver(results, infos, count);
}
