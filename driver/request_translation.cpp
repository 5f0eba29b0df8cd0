// OutputFilterEx online: host requests become Unity read or write items for the device's
// session; values read are left in the tag table's result slots for the input filter.
#include <algorithm>
#include <cstring>
#include <vector>

#include "driver/device_context.h"
#include "driver/filter_steps.h"
#include "driver/tag_driver_offline_578.h"
#include "unity/dictionary_records.h"

namespace {

using filter_steps::element_size;

// Sets every field of an item, so that an item kept from an earlier request is as new.
void fill_item(read_comm& item, const offline_stTag_578& tag, uint32_t element_offset,
               uint16_t count) {
  item.location = tag.location;
  item.member_offset = tag.member_offset;
  item.element_offset = static_cast<uint16_t>(element_offset);
  item.count = count;
  item.read_format = static_cast<uint8_t>(tag.read_format);
  item.type_id = tag.type_id;
  item.single_element = 0;
  // Clearing an empty deque still walks its map: a read item's data is always empty.
  if (!item.data.empty()) item.data.clear();
}

read_comm item_from(const offline_stTag_578& tag, uint32_t element_offset, uint16_t count) {
  read_comm item;
  fill_item(item, tag, element_offset, count);
  return item;
}

// The write size of a type: STRING counts 2 here although it reads 1 byte per element.
unsigned write_element_size(uint8_t type_code) {
  return type_code == UNITYDRV_TYPE_STRING ? 2 : element_size(type_code);
}

void read_requests(tag_driver_offline_578& driver, device_context& device, _gui_request_* requests,
                   int count) {
  // The device keeps its item list from one cycle to the next: an item owns a deque, and
  // building a fresh one per tag and cycle would cost two allocations each time.
  std::vector<read_comm>& items = device.read_items;
  items.resize(static_cast<std::size_t>(std::max(count, 0)));
  if (items.empty()) return;
  // Held in locals: the byte stores below may alias anything reached through the device.
  read_comm* const item_at = items.data();
  slot_head* const head_at = device.tag_table.slots.plan(items.size());
  for (int i = 0; i < count; ++i) {
    offline_stTag_578 tag;
    slot_head& head = head_at[i];
    const uint16_t n = filter_steps::prepare_read(driver, device, requests[i], head, tag);
    read_comm& item = item_at[i];
    fill_item(item, tag, element_size(tag.request_byte) * tag.request_word, n);
    // A BitArray's length comes from its data type.
    if (tag.request_byte == filter_steps::type_bit_array) item.read_format = 0x21;
  }
  // The request goes out first; the slot heads are written while the reply is on its way.
  const bool sent = device.session.send_read(items);
  result_slots& slots = device.tag_table.slots;
  slots.post_heads();
  // Kept by the device, like the items, so that a warm cycle allocates nothing.
  std::vector<unsigned char>& bytes = device.read_values;
  if (!sent || device.session.receive_read(bytes) == 0) return;
  slots.fill(items, bytes);
}

void write_request(tag_driver_offline_578& driver, device_context& device,
                   const _gui_request_& request, int count) {
  const filter_steps::write_target target = filter_steps::prepare_write(driver, device, request);
  if (target.done) return;
  const offline_stTag_578& tag = target.tag;
  const uint16_t n = target.count;
  const std::vector<unsigned char> image = filter_steps::write_image(request, tag.request_byte);
  // A string goes as one item whatever the count.
  const int runs = tag.request_byte == filter_steps::type_string ? 1 : count;
  std::vector<read_comm> items;
  items.reserve(static_cast<std::size_t>(std::max(runs, 0)));
  for (int j = 0; j < runs; ++j) {
    const uint32_t a = static_cast<uint32_t>(tag.request_word) + static_cast<uint32_t>(j);
    read_comm item = item_from(tag, a * write_element_size(tag.request_byte), n);
    item.data.assign(image.begin(), image.end());
    items.push_back(item);
  }
  // A failed write shows only in the session's state; the host is not told.
  device.session.write(items);
}

}  // namespace

unitydrv_result tag_driver_offline_578::on_line_outputfilter(device_context& device,
                                                             _gui_request_* requests, int count) {
  const uint8_t kind = requests[0].request_kind;
  if (kind == 1 || kind == 2) {
    write_request(*this, device, requests[0], count);
  } else {
    read_requests(*this, device, requests, count);
  }
  std::memset(requests[0].status, 0, sizeof(requests[0].status));
  return filter_steps::filter_result();
}
