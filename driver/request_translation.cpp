// OutputFilterEx online: host requests become Unity read or write items for the device's
// session; values read are left in the tag table's result slots for the input filter.
#include <algorithm>
#include <cstring>
#include <tuple>
#include <utility>
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

// The read item and slot head of every request position, into the device's kept items
// (at least count of them).
[[gnu::always_inline]] inline void build_items(tag_driver_offline_578& driver,
                                               device_context& device, _gui_request_* requests,
                                               int count) {
  // Held in locals: the byte stores below may alias anything reached through the device.
  read_comm* const item_at = device.read_items.data();
  slot_head* const head_at = device.tag_table.slots.plan(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) {
    offline_stTag_578 tag;
    slot_head& head = head_at[i];
    const uint16_t n = filter_steps::prepare_read(driver, device, requests[i], head, tag);
    read_comm& item = item_at[i];
    fill_item(item, tag, element_size(tag.request_byte) * tag.request_word, n);
    // A BitArray's length comes from its data type.
    if (tag.request_byte == filter_steps::type_bit_array) item.read_format = 0x21;
  }
}

// Guarded: whether the requests are those of the last read, which served every position,
// against the same tag index: their verdict stands, and the checks need not run again.
bool same_as_served_last(const guarded_device& g, const _gui_request_* requests, int count) {
  if (!g.all_served || g.checked_generation != g.generation ||
      g.refs.size() != static_cast<std::size_t>(count)) {
    return false;
  }
  const tag_ref* const last = g.refs.data();
  for (int i = 0; i < count; ++i) {
    if (std::memcmp(&requests[i].ref, &last[i], sizeof(tag_ref)) != 0) return false;
  }
  return true;
}

// Guarded: remembers requests whose positions were all served, for same_as_served_last.
void remember_served(guarded_device& g, const _gui_request_* requests, int count,
                     std::size_t value_bytes) {
  g.refs.resize(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) g.refs[static_cast<std::size_t>(i)] = requests[i].ref;
  g.checked_generation = g.generation;
  g.value_bytes = value_bytes;
  g.all_served = true;
}

// Guarded: moves the items of the served positions to the front, in request order, each
// with its position, after a plan that refused some; returns how many are served. Refused
// positions deliver nothing.
std::size_t compact_served(device_context& device, _gui_request_* requests, int count) {
  guarded_device& g = device.guarded;
  read_comm* const item_at = device.read_items.data();
  slot_head* const heads = device.tag_table.slots.plan(static_cast<std::size_t>(count));
  std::size_t served = 0;
  for (int i = 0; i < count; ++i) {
    const uint8_t why = g.refusals[static_cast<std::size_t>(i)];
    if (why != guard::served) {
      heads[i].element_count = 0;
      if (trace::on) {
        const uint32_t tag = requests[i].ref.tag_index;
        const char* name =
            tag < device.tag_table.tag_count ? device.tag_table.entries[tag].name : "";
        guarded_requests::trace_refused(i, tag, name, why);
      }
      continue;
    }
    if (served != static_cast<std::size_t>(i)) item_at[served] = item_at[i];
    g.positions[served++] = static_cast<uint16_t>(i);
  }
  return served;
}

// Guarded: the default's items for every position, each position checked against its
// tag's verdict; the refused ones are noted. Returns how many positions are refused and
// the value bytes of the others.
[[gnu::noinline]] std::pair<std::size_t, std::size_t> plan_guarded(tag_driver_offline_578& driver,
                                                                   device_context& device,
                                                                   _gui_request_* requests,
                                                                   int count) {
  guarded_device& g = device.guarded;
  const auto positions = static_cast<std::size_t>(count);
  if (device.read_items.size() < positions) device.read_items.resize(positions);  // never shrunk
  if (g.positions.size() < positions) g.positions.resize(positions);
  if (g.refusals.size() < positions) g.refusals.resize(positions);
  // Held in locals: the byte stores below may alias anything reached through the device.
  read_comm* const item_at = device.read_items.data();
  uint8_t* const refusal_at = g.refusals.data();
  slot_head* const heads = device.tag_table.slots.plan(positions);
  const tag_entry* const entries = device.tag_table.entries;
  const uint32_t tag_count = device.tag_table.tag_count;
  std::size_t refused = 0, value_bytes = 0;
  for (int i = 0; i < count; ++i) {
    offline_stTag_578 tag;
    const uint16_t n = filter_steps::prepare_read(driver, device, requests[i], heads[i], tag);
    const unsigned size = element_size(tag.request_byte);
    const uint8_t why = guarded_requests::position_refusal(entries, tag_count, requests[i].ref, tag,
                                                           size, n, i + 1 == count);
    read_comm& item = item_at[i];
    fill_item(item, tag, size * tag.request_word, n);
    if (tag.request_byte == filter_steps::type_bit_array) item.read_format = 0x21;
    refusal_at[i] = why;
    refused += why != guard::served;
    value_bytes += why == guard::served ? std::size_t{size} * n : 0;
  }
  return {refused, value_bytes};
}

// Guarded: the positions whose values the driver cannot vouch for are refused and left
// out of the request, the others are read; a reply too short for them fails the round.
[[gnu::noinline]] void guarded_read(tag_driver_offline_578& driver, device_context& device,
                                    _gui_request_* requests, int count) {
  guarded_device& g = device.guarded;
  g.round_refusal = guard::served;
  g.refused = 0;
  if (count <= 0) return;
  const uint8_t round = guarded_requests::round_refusal(device, count);
  if (round != guard::served) return guarded_requests::refuse_round(device, round, count);
  std::size_t refused = 0, value_bytes = g.value_bytes;
  if (same_as_served_last(g, requests, count)) {
    build_items(driver, device, requests, count);
  } else {
    g.all_served = false;
    std::tie(refused, value_bytes) = plan_guarded(driver, device, requests, count);
    if (refused == 0) remember_served(g, requests, count, value_bytes);
  }
  g.refused = refused;
  std::size_t served = static_cast<std::size_t>(count);
  if (refused != 0) served = compact_served(device, requests, count);
  if (value_bytes > guarded_requests::max_value_bytes) {
    guarded_requests::refuse_round(device, guard::too_many_value_bytes, count);
    served = 0;
  }
  const bool sent = served != 0 && device.session.send_read(device.read_items, served);
  device.tag_table.slots.post_heads();
  std::vector<unsigned char>& bytes = device.read_values;
  if (!sent || device.session.receive_read(bytes) == 0) return;
  if (bytes.size() < value_bytes) {
    // A cut reply: the values it holds may be anyone's.
    if (trace::on) {
      trace::emit("guarded", "reply value_bytes=%zu of %zu: round refused", bytes.size(),
                  value_bytes);
    }
    device.session.state = unity_process::state_failed;
    return;
  }
  // Every position served: the items stand in request order, as the default's fill takes them.
  if (g.refused == 0) return device.tag_table.slots.fill(device.read_items, bytes);
  device.tag_table.slots.fill_positions(device.read_items, g.positions.data(), served, bytes);
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
  build_items(driver, device, requests, count);
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
  const uint64_t last_index =
      uint64_t{tag.request_word} + static_cast<uint64_t>(std::max(runs, 1)) - 1;
  if (why == guard::served && last_index > 0xFFFF) why = guard::past_the_array;
  offline_stTag_578 last = tag;
  last.request_word = static_cast<uint16_t>(last_index);
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
