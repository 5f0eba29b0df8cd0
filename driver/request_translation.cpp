// OutputFilterEx online: host requests become Unity read or write items for the device's
// session; values read are left in the tag table's result slots for the input filter.
#include <algorithm>
#include <cstring>
#include <vector>

#include "driver/device_context.h"
#include "driver/filter_steps.h"
#include "driver/guarded_requests.h"
#include "driver/tag_driver_offline_578.h"
#include "guard/guard.h"
#include "trace/trace.h"
#include "unity/dictionary_records.h"
#include "wire/plc_types.h"

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

// Guarded: the positions whose values the driver cannot vouch for are refused and left
// out of the request, the others are read; a reply too short for them fails the round.
void guarded_read(tag_driver_offline_578& driver, device_context& device, _gui_request_* requests,
                  int count) {
  guarded_device& g = device.guarded;
  g.round_refusal = guard::served;
  const std::size_t positions = static_cast<std::size_t>(std::max(count, 0));
  g.refusals.assign(positions, guard::served);
  if (positions == 0) return;
  const uint8_t round = guarded_requests::round_refusal(device, count);
  if (round != guard::served) return guarded_requests::refuse_round(device, round, count);
  std::vector<read_comm>& items = device.read_items;
  if (items.size() < positions) items.resize(positions);  // never shrunk: no allocation
  if (g.positions.size() < positions) g.positions.resize(positions);
  slot_head* const heads = device.tag_table.slots.plan(positions);
  std::size_t served = 0, value_bytes = 0;
  for (int i = 0; i < count; ++i) {
    offline_stTag_578 tag;
    const uint16_t n = filter_steps::prepare_read(driver, device, requests[i], heads[i], tag);
    const uint8_t why =
        guarded_requests::position_refusal(device, requests[i].ref, tag, n, i + 1 == count);
    if (why != guard::served) {
      g.refusals[static_cast<std::size_t>(i)] = why;
      heads[i].element_count = 0;
      if (trace::on) guarded_requests::trace_refused(i, requests[i].ref.tag_index, tag.name, why);
      continue;
    }
    read_comm& item = items[served];
    fill_item(item, tag, element_size(tag.request_byte) * tag.request_word, n);
    if (tag.request_byte == filter_steps::type_bit_array) item.read_format = 0x21;
    g.positions[served++] = static_cast<uint16_t>(i);
    value_bytes += std::size_t{element_size(tag.request_byte)} * n;
  }
  result_slots& slots = device.tag_table.slots;
  if (value_bytes > guarded_requests::max_value_bytes) {
    guarded_requests::refuse_round(device, guard::too_many_value_bytes, count);
    served = 0;
  }
  const bool sent = served != 0 && device.session.send_read(items, served);
  slots.post_heads();
  std::vector<unsigned char>& bytes = device.read_values;
  if (!sent || device.session.receive_read(bytes) == 0) return;
  if (bytes.size() < value_bytes) {
    // A cut reply: the values it holds may be anyone's.
    if (trace::on)
      trace::emit("guarded", "reply value_bytes=%zu of %zu: round refused", bytes.size(),
                  value_bytes);
    device.session.state = unity_process::state_failed;
    return;
  }
  slots.fill_positions(items, g.positions.data(), served, bytes);
}

void read_requests(tag_driver_offline_578& driver, device_context& device, _gui_request_* requests,
                   int count) {
  if (count > 255 && trace::on) {
    trace::emit("too-many-requests",
                "requests=%d (at most 255 a call): nothing sent, the earlier round's values are "
                "delivered",
                count);
  }
  if (guard::on) return guarded_read(driver, device, requests, count);
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

// Guarded: a write goes out only to a tag whose reads would be served, for every element
// run it names.
bool guarded_write_allowed(const device_context& device, const _gui_request_& request,
                           const offline_stTag_578& tag, uint16_t n, int runs) {
  uint8_t why = device.guarded.ready ? guard::served : guard::not_ready;
  offline_stTag_578 last = tag;
  last.request_word = static_cast<uint16_t>(tag.request_word + std::max(runs, 1) - 1);
  if (why == guard::served)
    why = guarded_requests::position_refusal(device, request.ref, tag, n, true);
  if (why == guard::served)
    why = guarded_requests::position_refusal(device, request.ref, last, n, true);
  if (why != guard::served && trace::on) {
    trace::emit("guarded", "write tag=%u name=%s refused reason=\"%s\" (nothing sent)",
                request.ref.tag_index, tag.name, guard::reason_text(why));
  }
  return why == guard::served;
}

// Guarded: a bit inside a word reaches the controller. The word is read, its bit set or
// cleared, and the word written back.
void write_bit_through(device_context& device, const _gui_request_& request,
                       const offline_stTag_578& tag) {
  const unsigned width = wire::bit_source_width(tag.request_byte);
  const unsigned bit = static_cast<uint8_t>(tag.bit_number);
  if (width == 0 || bit >= 8 * width) {
    if (trace::on)
      trace::emit("guarded",
                  "bit write tag=%u bit=%u: the type has no such bit; "
                  "kept in the driver's memory only",
                  request.ref.tag_index, bit);
    return;
  }
  if (!guarded_write_allowed(device, request, tag, 1, 1)) return;
  std::vector<read_comm> items{
      item_from(tag, element_size(tag.request_byte) * tag.request_word, 1)};
  std::vector<unsigned char> values;
  if (device.session.read(items, values) == 0 || values.size() < width) return;
  uint32_t word = 0;
  for (unsigned k = 0; k < width; ++k) word |= uint32_t{values[k]} << (8 * k);
  word = guarded_requests::with_bit(word, bit, request.write.bit.write_bit_value != 0);
  items[0].single_element = 0;
  for (unsigned k = 0; k < width; ++k)
    items[0].data.push_back(static_cast<uint8_t>(word >> (8 * k)));
  device.session.write(items);
  if (trace::on)
    trace::emit("guarded",
                "bit write tag=%u bit=%u value=%u: word read, bit "
                "changed, word written back",
                request.ref.tag_index, bit, request.write.bit.write_bit_value != 0 ? 1u : 0u);
}

bool one_byte_type(uint8_t code) {
  return code == UNITYDRV_TYPE_SINT || code == UNITYDRV_TYPE_BYTE || code == UNITYDRV_TYPE_USINT;
}

void write_request(tag_driver_offline_578& driver, device_context& device,
                   const _gui_request_& request, int count) {
  const filter_steps::write_target target = filter_steps::prepare_write(driver, device, request);
  if (target.done) {
    if (guard::on) write_bit_through(device, request, target.tag);
    return;
  }
  const offline_stTag_578& tag = target.tag;
  const uint16_t n = target.count;
  if (guard::on &&
      !guarded_write_allowed(device, request, tag, n,
                             tag.request_byte == filter_steps::type_string ? 1 : count)) {
    return;
  }
  // Guarded, a 1-byte type sends one byte per element, as the controller reads it.
  const std::vector<unsigned char> image =
      guard::on && one_byte_type(tag.request_byte)
          ? guarded_requests::one_byte_image(request)
          : filter_steps::write_image(request, tag.request_byte);
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
