// Guarded mode's checks on host requests (guard::on): which request positions of a read
// are refused and why, the round that fails whole, and the two writes that guarded mode
// carries out differently (a bit inside a word, the 1-byte types).
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "driver/device_context.h"
#include "guard/guard.h"
#include "tag_index/result_slots.h"
#include "unitydrv/unitydrv.h"
#include "wire/plc_types.h"

namespace guarded_requests {

// A read reply holds 2,048 bytes: 10 of header and status, the rest values.
constexpr std::size_t max_value_bytes = 2038;

// Bytes of a result slot's data area.
constexpr std::size_t area_bytes = sizeof(result_slot::data);

// Why a read request position is refused (a guard::reason), 0 when it is served: against
// the table's entries (tag_count of them). tag is the working tag filled from the request,
// size the element size of its type; n its element count; last: no position follows.
// Inline: it runs for every request of a guarded read cycle.
inline uint8_t position_refusal(const tag_entry* entries, uint32_t tag_count, const tag_ref& ref,
                                const offline_stTag_578& tag, unsigned size, uint16_t n,
                                bool last) {
  if (ref.tag_index >= tag_count) return guard::no_such_tag;
  const tag_entry& entry = entries[ref.tag_index];
  if (entry.guard_refusal != guard::served) return entry.guard_refusal;
  const uint64_t a = tag.request_word;
  if (entry.guard_element != 0 && (a + 1 != entry.guard_element || n > 1)) {
    return guard::other_element;
  }
  if (size * (a + n) > entry.guard_extent) return guard::past_the_array;
  // A position's values longer than its slot's area run on into the slots behind it,
  // which the positions there then overwrite. An element takes at most four units.
  if (n > area_bytes / 8 && !last &&
      2 * std::size_t{n} * wire::result_units(tag.request_byte) > area_bytes) {
    return guard::slot_overrun;
  }
  return guard::served;
}

inline uint8_t position_refusal(const device_context& device, const tag_ref& ref,
                                const offline_stTag_578& tag, uint16_t n, bool last) {
  return position_refusal(device.tag_table.entries, device.tag_table.tag_count, ref, tag,
                          wire::element_size(tag.request_byte), n, last);
}

// Why the whole read of count requests fails before any is looked at, or 0.
uint8_t round_refusal(const device_context& device, int count);

// Records a refusal of every position of the round (the trace says why).
void refuse_round(device_context& device, uint8_t why, int count);

// The trace line of one refused position.
[[gnu::cold]] void trace_refused(int position, uint32_t tag_index, const char* name, uint8_t why);

// The word of a bit write, its bit set or cleared: width bytes (1, 2 or 4) of value.
uint32_t with_bit(uint32_t value, unsigned bit, bool set);

// The value bytes of a write of a 1-byte type (SINT, BYTE, USINT): one per element.
std::vector<unsigned char> one_byte_image(const _gui_request_& request);

}  // namespace guarded_requests
