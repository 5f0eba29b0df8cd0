#include "driver/guarded_requests.h"

#include "guard/guard.h"
#include "tag_index/result_slots.h"
#include "trace/trace.h"
#include "wire/byte_cursor.h"
#include "wire/plc_types.h"

namespace guarded_requests {
namespace {

constexpr std::size_t max_requests = 255;

}  // namespace

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
