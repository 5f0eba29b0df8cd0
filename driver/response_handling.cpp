// InputFilterEx: the result slots of the last OutputFilterEx become the host's results,
// or every result reports the session's failure.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <vector>

#include "driver/device_context.h"
#include "driver/host_request.h"
#include "driver/tag_driver_offline_578.h"
#include "driver/trace_events.h"
#include "trace/trace.h"
#include "wire/byte_cursor.h"
#include "wire/plc_types.h"

namespace {

uint8_t* result_bytes(_input_data_& result) {
  return reinterpret_cast<uint8_t*>(&result) + offsetof(_input_data_, result_words);
}

constexpr std::size_t result_capacity = sizeof(_input_data_::result_words);

using wire::bit_source_width;

uint32_t bit_source(const uint8_t* data, unsigned width) {
  std::array<unsigned char, 4> head{};
  std::copy_n(data, width, head.begin());
  wire::basic_le_reader<std::array<unsigned char, 4>> in(head);
  if (width == 1) return in.u8();
  if (width == 2) return in.u16();
  if (width == 4) return in.u32();
  return 0;
}

// Element k is bit (bit + k) mod 256 of one source value; positions past 31 are clear.
void deliver_bits(const result_slot& slot, const uint8_t* data, _input_data_& result) {
  const unsigned width = bit_source_width(slot.type_code);
  const uint32_t source = bit_source(data, width);
  host_request::unit_writer out(result_bytes(result), result_capacity);
  for (unsigned k = 0; k < slot.element_count; ++k) {
    const unsigned position = (slot.bit_number + k) % 256;
    const bool set = width != 0 && position < 32 && ((source >> position) & 1u) != 0;
    out.unit(set ? 0xFFFF : 0);
  }
}

// n elements from the slot's data on, through the slots behind it when they reach that far;
// the host's result holds 4096 bytes and no more is copied.
std::size_t value_bytes(const result_slot& slot) {
  const std::size_t wanted =
      slot.element_count * host_request::result_element_bytes(slot.type_code);
  return std::min(wanted, result_capacity);
}

}  // namespace

namespace host_request {

void deliver_slots(offline_CTagTable_578& table, _input_data_* results, const _system_info* infos,
                   int count) {
  if (count < 1) return;
  // Grown once to hold the longest copy from the last slot.
  result_slot* const slots = table.slots(static_cast<std::size_t>(count), result_capacity);
  for (int i = 0; i < count; ++i) {
    const auto position = static_cast<std::size_t>(i);
    const result_slot& slot = slots[position];
    _input_data_& result = results[i];
    result.result_status = 0;
    result.result_code = 5;
    result.request_id = infos[i].request_id;
    const uint8_t* data = slot_area(slots, position);
    if (slot.bit_number == no_bit) {
      const std::size_t bytes = value_bytes(slot);
      std::memcpy(result_bytes(result), data, bytes);
    } else {
      deliver_bits(slot, data, result);
    }
  }
}

}  // namespace host_request

void tag_driver_offline_578::inputFilter(_input_data_* results, _frame_data_* frame,
                                         _system_info* infos, int count) {
  if (results == nullptr || infos == nullptr) return;
  device_context* device = host_request::device_of(infos[0].device_handle);
  if (device == nullptr) return;
  if (device->offline_mode != 0) {
    off_line_inputFilter(results, frame, infos, count);
    return;
  }
  host_request::preset_first_result(results[0]);
  if (device->session.state == unity_process::state_failed) {
    for (int i = 0; i < count; ++i) {
      results[i].result_code = 10;
      results[i].result_status = 2;
    }
    if (trace::on) trace_events::failure_reported(count);
    // Reported once; the next round tries the controller again.
    device->session.state = unity_process::state_ready;
    return;
  }
  if (infos[0].info_valid == 0 || count < 1) return;
  host_request::deliver_slots(device->tag_table, results, infos, count);
}
