#include "tag_index/result_slots.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

#include "dictionary/type_sizes.h"
#include "trace/trace.h"
#include "wire/plc_types.h"
#include "wire/unity_constants.h"

namespace {

constexpr std::size_t stride = sizeof(result_slot);
constexpr std::size_t area_begin = offsetof(result_slot, data);
constexpr uint8_t no_bit = 255;

// Grown once to hold the longest fill from the last slot of a read, two bytes for each
// byte of a 2,048-byte receive: a fill then addresses the block directly.
constexpr std::size_t longest_fill = 2 * 2048;
constexpr std::size_t result_capacity = sizeof(_input_data_::result_words);

// The data area of slot i of a block; a fill or copy longer than one data area runs on into
// the slots behind it.
uint8_t* area_of(result_slot* block, std::size_t i) {
  return reinterpret_cast<uint8_t*>(block) + i * stride + area_begin;
}

// The head is the slot's first four bytes, laid out as a slot_head: one copy writes it.
static_assert(sizeof(slot_head) == 4 && offsetof(result_slot, type_code) == 0 &&
                  offsetof(result_slot, bit_number) == offsetof(slot_head, bit_number) &&
                  offsetof(result_slot, element_count) == offsetof(slot_head, element_count),
              "a slot starts with its head");
void put_head(result_slot& slot, const slot_head& head) {
  std::memcpy(&slot, &head, sizeof head);
}

// Zeroes what an area holds since its last clear.
void clear(uint8_t* area, uint16_t& written) {
  std::memset(area, 0, written);
  written = 0;
}

// After a fill that wrote every one of length bytes (below the cleared part) from the
// area's start: zeroes what an earlier fill left behind them.
void clear_behind(uint8_t* area, uint16_t& written, std::size_t length) {
  if (written > length) std::memset(area + length, 0, written - length);
  written = static_cast<uint16_t>(length);
}

// A 1-byte element holding one bit: only bit 0 (and bits 2..7) count, bit 1 is masked.
uint16_t bit_unit(uint8_t byte) {
  return (byte & ~0x02u) != 0 ? 1 : 0;
}

// Unpacks the reply bytes of one request into a data area; advances the reader past them
// and returns how many bytes of the area it wrote (all of them, save the high bytes of a
// string's units).
[[gnu::always_inline]] inline std::size_t unpack(uint8_t* area, std::size_t room, uint8_t type,
                                                 const read_comm& item, wire::le_reader& in) {
  wire::bounded_le_writer out(area, room);
  const unsigned count = item.count;
  // One type per request: its size is looked up once, not per element.
  const unsigned size = wire::element_size(type);
  if (type == UNITYDRV_TYPE_STRING) {
    for (unsigned k = 0; k < count; ++k) out.low_byte(in.u8());
  } else if (size == 1) {
    const bool one_bit = item.single_element != 0 || item.type_id == dictionary::ebool_type;
    for (unsigned k = 0; k < count; ++k) {
      const uint8_t byte = in.u8();
      out.unit(one_bit ? bit_unit(byte) : byte);
    }
  } else if (size == 2) {
    for (unsigned k = 0; k < count; ++k) out.unit(in.u16());
  } else if (size == 4) {
    for (unsigned k = 0; k < count; ++k) out.units(in.u32(), 2);
  } else if (size == 8) {
    for (unsigned k = 0; k < count; ++k) out.units(in.u64(), 4);
  }
  return out.pos();
}

// What a fill can write with left reply bytes to go: never more than two bytes per byte,
// and the clear.
std::size_t fill_room(std::size_t left) {
  return std::max(result_slots::cleared_bytes, 2 * left);
}

uint8_t* result_bytes(_input_data_& result) {
  return reinterpret_cast<uint8_t*>(&result) + offsetof(_input_data_, result_words);
}

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
  const unsigned width = wire::bit_source_width(slot.type_code);
  const uint32_t source = bit_source(data, width);
  wire::bounded_le_writer out(result_bytes(result), result_capacity);
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
      slot.element_count * 2 * std::size_t{wire::result_units(slot.type_code)};
  return std::min(wanted, result_capacity);
}

}  // namespace

void result_slots::post_heads() {
  if (heads_.empty()) return;
  area(heads_.size() - 1, longest_fill);
  result_slot* const block = block_.data();
  const slot_head* const heads = heads_.data();
  for (std::size_t i = 0, n = heads_.size(); i < n; ++i) put_head(block[i], heads[i]);
}

// Unpacks the values of items[0..count) in reply order into the slots position_of(k)
// gives, each typed by its planned head.
template <typename PositionOf>
void result_slots::fill_in_order(const read_comm* item_at, std::size_t count,
                                 PositionOf position_of, const std::vector<unsigned char>& values) {
  // Held in locals: the byte stores into the block may alias anything reached through this.
  result_slot* const block = block_.data();
  const slot_head* const heads = heads_.data();
  uint16_t* const written = written_.data();
  wire::le_reader in(values);
  for (std::size_t k = 0; k < count; ++k) {
    const std::size_t j = position_of(k);
    const std::size_t left = values.size() > in.pos() ? values.size() - in.pos() : 0;
    const std::size_t room = fill_room(left);
    const uint8_t type = heads[j].type_code;
    uint8_t* const area = area_of(block, j);
    // A string's fill writes only the low byte of each unit, and a reply too short for a
    // request stops its fill part way with out_of_range: both clear the whole area first,
    // and the short one counts all its room as written.
    const bool whole = std::size_t{item_at[k].count} * wire::element_size(type) <= left;
    if (!whole && trace::on) {
      trace::emit("short-reply",
                  "request=%zu type=%u elements=%u value_bytes_left=%zu (std::out_of_range "
                  "follows)",
                  j, unsigned{type}, unsigned{item_at[k].count}, left);
    }
    if (type == UNITYDRV_TYPE_STRING || !whole) clear(area, written[j]);
    if (!whole) note_written(j, room);
    const std::size_t length = unpack(area, room, type, item_at[k], in);
    if (length >= cleared_bytes) {
      note_written(j, length);
    } else {
      clear_behind(area, written[j], length);
    }
  }
}

void result_slots::fill(const std::vector<read_comm>& items,
                        const std::vector<unsigned char>& values) {
  fill_in_order(
      items.data(), heads_.size(), [](std::size_t k) { return k; }, values);
}

void result_slots::fill_positions(const std::vector<read_comm>& items, const uint16_t* positions,
                                  std::size_t served, const std::vector<unsigned char>& values) {
  fill_in_order(
      items.data(), served, [positions](std::size_t k) { return std::size_t{positions[k]}; },
      values);
}

result_slot& result_slots::slot(std::size_t i) {
  if (i >= block_.size()) grow(i + 1);
  return block_[i];
}

void result_slots::set_head(std::size_t i, const slot_head& head) {
  put_head(slot(i), head);
}

wire::bounded_le_writer result_slots::overwrite(std::size_t i, std::size_t room) {
  wire::bounded_le_writer out(area(i, room), room);
  // Noted before the writes, which an exception may cut short.
  note_written(i, room);
  return out;
}

namespace {

// The host result of one position from its slot.
[[gnu::always_inline]] inline void deliver_one(result_slot* block, std::size_t position,
                                               _input_data_& result, const _system_info& info) {
  const result_slot& slot = block[position];
  result.result_status = 0;
  result.result_code = 5;
  result.request_id = info.request_id;
  const uint8_t* data = area_of(block, position);
  if (slot.bit_number == no_bit) {
    std::memcpy(result_bytes(result), data, value_bytes(slot));
  } else {
    deliver_bits(slot, data, result);
  }
}

}  // namespace

void result_slots::deliver(_input_data_* results, const _system_info* infos, int count) {
  if (count < 1) return;
  // Grown once to hold the longest copy from the last slot.
  area(static_cast<std::size_t>(count) - 1, result_capacity);
  result_slot* const block = block_.data();
  for (int i = 0; i < count; ++i) {
    deliver_one(block, static_cast<std::size_t>(i), results[i], infos[i]);
  }
}

void result_slots::deliver_except(_input_data_* results, const _system_info* infos, int count,
                                  const std::vector<uint8_t>& refused) {
  if (count < 1) return;
  area(static_cast<std::size_t>(count) - 1, result_capacity);
  result_slot* const block = block_.data();
  for (int i = 0; i < count; ++i) {
    const auto position = static_cast<std::size_t>(i);
    if (position < refused.size() && refused[position] != 0) {
      results[i].result_status = 2;
      results[i].result_code = 10;
      results[i].request_id = infos[i].request_id;
    } else {
      deliver_one(block, position, results[i], infos[i]);
    }
  }
}

void result_slots::note_written(std::size_t i, std::size_t length) {
  if (length > stride - area_begin) {
    note_long_write(i, length);
  } else if (length > written_[i]) {
    written_[i] = static_cast<uint16_t>(std::min(length, cleared_bytes));
  }
}

uint8_t* result_slots::area(std::size_t i, std::size_t length) {
  const std::size_t begin = i * stride + area_begin;
  const std::size_t slots_needed = (begin + length + stride - 1) / stride;
  if (slots_needed > block_.size()) grow(slots_needed);
  return reinterpret_cast<uint8_t*>(block_.data()) + begin;
}

void result_slots::grow(std::size_t count) {
  // New slots are zero, so nothing in them is written yet.
  block_.resize(count);
  written_.resize(count);
}

void result_slots::note_long_write(std::size_t i, std::size_t length) {
  const std::size_t end = i * stride + area_begin + length;
  for (std::size_t k = i; k < written_.size(); ++k) {
    const std::size_t begin = k * stride + area_begin;
    if (begin >= end) break;
    const std::size_t reach = std::min(end - begin, cleared_bytes);
    written_[k] = std::max(written_[k], static_cast<uint16_t>(reach));
  }
}
