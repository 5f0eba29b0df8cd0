// The device's tag table, loaded from the tag file and resolved against the dictionary.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "unity/dictionary_records.h"

// One tag of the table: its name from the tag file and, once resolved, where it lives in
// controller memory. Entries live in one malloc block.
struct tag_entry {
  char* name;  // zero-terminated; 16-bit characters when the table has wide names
  uint8_t file_kind;
  uint32_t file_value1;
  uint32_t file_value2;
  uint32_t read_format;  // 255: no direct format
  uint16_t type_id;
  std::array<unsigned char, 6> location;  // block (u16 LE), offset (u32 LE)
  uint64_t member_offset;
};

// Where a read leaves the values of one request position until the input filter runs.
struct result_slot {
  uint8_t type_code;
  uint8_t bit_number;  // 255: none
  uint16_t element_count;
  uint8_t unused[8];
  uint8_t data[792];  // values as 16-bit units; the first 512 bytes are cleared per fill
};
static_assert(sizeof(result_slot) == 804, "result slots are 804 bytes apart");

// What a result slot's head says of its request: set for every request of a read, before
// any value arrives.
struct slot_head {
  uint8_t type_code = 0;
  uint8_t bit_number = 255;
  uint16_t element_count = 0;
};

inline void set_head(result_slot& slot, const slot_head& head) {
  slot.type_code = head.type_code;
  slot.bit_number = head.bit_number;
  slot.element_count = head.element_count;
}

// Bytes of a slot's data area that every fill clears before it writes.
constexpr std::size_t slot_cleared_bytes = 512;

// The data area of slot i of a block of slots; a fill or copy longer than one data area
// runs on into the slots behind it.
inline uint8_t* slot_area(result_slot* first, std::size_t i) {
  return reinterpret_cast<uint8_t*>(first) + i * sizeof(result_slot) + offsetof(result_slot, data);
}

class offline_CTagTable_578 {
 public:
  offline_CTagTable_578();
  ~offline_CTagTable_578();
  offline_CTagTable_578(const offline_CTagTable_578&) = delete;
  offline_CTagTable_578& operator=(const offline_CTagTable_578&) = delete;

  // Loads the table from the records at offset + 7 of the file. 0 when the file cannot be
  // opened (the table stays as it was), else the result of closing it.
  int Read(const char* path, unsigned int offset);
  void Release();
  // No bounds check: index must be below tag_count.
  tag_entry* Get(unsigned int index) { return &entries[index]; }
  // First position whose name equals name, truncated to 16 bits; 0 when none.
  unsigned short GetTagIndexfromName(const char* name) const;
  // Resolves every tag; 1 when at least one tag resolved.
  int setup_memory_index(std::map<std::string, table> tables,
                         std::map<unsigned short, std::vector<data_type>> struct_members,
                         std::map<unsigned short, data_type> data_types);
  // The same resolution reading the caller's maps where they are: it never changes them,
  // so the result equals that of setup_memory_index on copies, without copying 50,000
  // variables on every handshake.
  int setup_memory_index_in_place(
      const std::map<std::string, table>& tables,
      const std::map<unsigned short, std::vector<data_type>>& struct_members);

  // Slot i of the last host request; grown on demand, never shrunk.
  result_slot& slot(std::size_t i) {
    if (i >= result_slots_.size()) grow_slots(i + 1);
    return result_slots_[i];
  }
  // The slots of a request of count positions, grown once so that the last one's data
  // area has tail bytes of room; address them with slot_area. Valid until the block grows.
  result_slot* slots(std::size_t count, std::size_t tail) {
    slot_data(count - 1, tail);
    return result_slots_.data();
  }
  // A fill clears the first slot_cleared_bytes of its slot's data area and then writes
  // its values. Only what was written there since the last clear needs clearing (the rest
  // is zero already), and where a fill writes every byte of its values, only the part of
  // that behind them: a cycle of short values then clears nothing at all.
  //
  // Clears the cleared part of slot i's data area, for a fill that leaves bytes among
  // its values as they are.
  void clear_slot_area(std::size_t i) {
    std::memset(area(i), 0, written_[i]);
    written_[i] = 0;
  }
  // Completes a fill that wrote every one of length bytes from the start of slot i's data
  // area (on into the slots behind it when longer): clears the rest of the cleared part.
  void finish_fill(std::size_t i, std::size_t length) {
    if (length >= slot_cleared_bytes) {
      note_slot_written(i, length);  // the whole cleared part is written over
      return;
    }
    if (written_[i] > length) std::memset(area(i) + length, 0, written_[i] - length);
    written_[i] = static_cast<uint16_t>(length);
  }
  // Records a write of length bytes from the start of slot i's data area that did not
  // clear first. Every write into the data areas goes through here or finish_fill.
  void note_slot_written(std::size_t i, std::size_t length) {
    if (length > sizeof(result_slot) - offsetof(result_slot, data)) {
      note_long_write(i, length);
    } else if (length > written_[i]) {
      written_[i] = static_cast<uint16_t>(std::min(length, slot_cleared_bytes));
    }
  }
  // The data area of slot i, with length bytes of room from its start. The slots are one
  // consecutive block, so a fill or copy longer than one data area runs on through the
  // slots behind it; the block grows to hold it. Valid until the block grows again.
  uint8_t* slot_data(std::size_t i, std::size_t length) {
    constexpr std::size_t stride = sizeof(result_slot);
    const std::size_t begin = i * stride + offsetof(result_slot, data);
    const std::size_t slots_needed = (begin + length + stride - 1) / stride;
    if (slots_needed > result_slots_.size()) grow_slots(slots_needed);
    return reinterpret_cast<uint8_t*>(result_slots_.data()) + begin;
  }

  uint32_t wide_names;
  uint32_t tag_count = 0;
  tag_entry* entries = nullptr;

 private:
  void build_name_index();
  void grow_slots(std::size_t count);
  void note_long_write(std::size_t i, std::size_t length);
  uint8_t* area(std::size_t i) { return slot_area(result_slots_.data(), i); }

  std::vector<result_slot> result_slots_;
  // Per slot: how many bytes from the start of its data area may be non-zero, up to
  // slot_cleared_bytes; everything behind them in the cleared part is zero.
  std::vector<uint16_t> written_;
  std::unordered_map<std::string, uint32_t>
      name_index_;  // name (as strcmp sees it) -> first position
};

// Adds the byte size of structured type type_id to size (an accumulator).
void calculate_block_size(std::map<unsigned short, std::vector<data_type>>& struct_members,
                          unsigned short& type_id, unsigned int& size);
