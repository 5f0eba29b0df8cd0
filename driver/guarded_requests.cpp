#include "driver/guarded_requests.h"

#include "guard/guard.h"
#include "tag_index/result_slots.h"
#include "trace/trace.h"
#include "wire/byte_cursor.h"
#include "wire/plc_types.h"

namespace guarded_requests {
namespace {

constexpr std::size_t max_requests = 255;
constexpr std::size_t area_bytes = sizeof(result_slot::data);

}  // namespace

uint8_t position_refusal(const device_context& device, const tag_ref& ref,
                         const offline_stTag_578& tag, uint16_t n, bool last) {
  const offline_CTagTable_578& table = device.tag_table;
  if (ref.tag_index >= table.tag_count) return guard::no_such_tag;
  const tag_entry& entry = table.entries[ref.tag_index];
  if (entry.guard_refusal != guard::served) return entry.guard_refusal;
  const uint64_t a = tag.request_word;
  if (entry.guard_element != 0 && (a + 1 != entry.guard_element || n > 1)) {
    return guard::other_element;
  }
  const uint64_t size = wire::element_size(tag.request_byte);
  if (size * (a + n) > entry.guard_extent) return guard::past_the_array;
  // A position's values longer than its slot's area run on into the slots behind it,
  // which the positions there then overwrite.
  const std::size_t units = std::size_t{n} * wire::result_units(tag.request_byte);
  if (!last && 2 * units > area_bytes) return guard::slot_overrun;
  return guard::served;
}

uint8_t round_refusal(const device_context& device, int count) {
  if (!device.guarded.ready) return guard::not_ready;
  if (static_cast<std::size_t>(count) > max_requests) return guard::too_many_requests;
  return guard::served;
}

void refuse_round(device_context& device, uint8_t why, int count) {
  device.guarded.round_refusal = why;
  if (trace::on) {
    trace::emit("guarded", "requests=%d refused=all reason=\"%s\" (nothing sent)", count,
                guard::reason_text(why));
  }
}

void trace_refused(int position, uint32_t tag_index, const char* name, uint8_t why) {
  trace::emit("guarded", "request=%d tag=%u name=%s refused reason=\"%s\"", position, tag_index,
              name != nullptr ? name : "", guard::reason_text(why));
}

uint32_t with_bit(uint32_t value, unsigned bit, bool set) {
  const uint32_t mask = uint32_t{1} << bit;
  return set ? value | mask : value & ~mask;
}

std::vector<unsigned char> one_byte_image(const _gui_request_& request) {
  constexpr std::size_t capacity = sizeof(request.write_words) / sizeof(request.write_words[0]);
  const std::size_t words = request.write.write_count;
  std::vector<unsigned char> image;
  for (std::size_t i = 0; i < words && i < capacity; ++i) {
    image.push_back(static_cast<unsigned char>(request.write_words[i]));
  }
  return image;
}

}  // namespace guarded_requests
