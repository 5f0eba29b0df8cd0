// The result slots: where a read leaves the values of each request position until the
// input filter hands them to the host.
//
// A warm read cycle allocates nothing. The block, the heads and the record of what each
// data area holds grow when a request has more positions than any before it and are never
// shrunk, so a cycle no larger than an earlier one only writes into memory it already has;
// the translation keeps its items and reply bytes the same way, and the session its
// request and reply buffers. tests/read_cycle holds this with a counting operator new.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "dictionary/dictionary_records.h"
#include "unitydrv/unitydrv.h"
#include "wire/byte_cursor.h"

// One request position: its head, then its data area. A long fill runs on into the slots
// behind its own, so where it lands there depends on this size.
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

class result_slots {
 public:
  // Bytes of a data area that every fill clears before it writes.
  static constexpr std::size_t cleared_bytes = 512;

  // Slot i; the block grows to hold it.
  result_slot& slot(std::size_t i);

  // An online read, around its exchange: plan(count) gives the heads to fill in while the
  // request is built, post_heads() writes them into the slots while the reply is on its
  // way, and fill() unpacks the reply. A fill may run on past its own slot, over the slots
  // behind it, heads included, so it takes every type and count from the planned heads.
  slot_head* plan(std::size_t count) {
    heads_.resize(count);
    return heads_.data();
  }
  void post_heads();
  // Unpacks the value bytes of a reply to the planned read of items, in request order
  // (a fill that runs into the slots behind it is overwritten by theirs). A reply too short
  // raises std::out_of_range part way.
  void fill(const std::vector<read_comm>& items, const std::vector<unsigned char>& values);
  // The same for a read that sent only some positions: item k (of served) fills the slot
  // of positions[k].
  void fill_positions(const std::vector<read_comm>& items, const uint16_t* positions,
                      std::size_t served, const std::vector<unsigned char>& values);

  // An offline read of position i: its head, then a writer of room bytes over its data
  // area (on into the slots behind it), all of them counted as written.
  void set_head(std::size_t i, const slot_head& head);
  wire::bounded_le_writer overwrite(std::size_t i, std::size_t room);

  // Copies slots 0..count-1 into the host results.
  void deliver(_input_data_* results, const _system_info* infos, int count);
  // The same, but a position whose refused entry is non-zero gets status 2, code 10 and
  // nothing of its slot.
  void deliver_except(_input_data_* results, const _system_info* infos, int count,
                      const std::vector<uint8_t>& refused);

  // What each data area holds since its last clear. A fill clears the first cleared_bytes
  // of its area and then writes; only what was written there since the last clear needs
  // clearing (the rest is zero already), and where a fill writes every byte of its values,
  // only the part behind them: a cycle of short values then clears nothing at all.
  //
  // Records a write of length bytes from the start of slot i's area that did not clear
  // first. Every write into the data areas outside a fill goes through here.
  void note_written(std::size_t i, std::size_t length);
  // The data area of slot i with length bytes of room from its start; the block grows to
  // hold it. Valid until the block grows again.
  uint8_t* area(std::size_t i, std::size_t length);

 private:
  void grow(std::size_t count);
  template <typename PositionOf>
  void fill_in_order(const read_comm* item_at, std::size_t count, PositionOf position_of,
                     const std::vector<unsigned char>& values);
  void note_long_write(std::size_t i, std::size_t length);

  std::vector<result_slot> block_;
  std::vector<slot_head> heads_;  // of the planned online read
  // Per slot: how many bytes from the start of its data area may be non-zero, up to
  // cleared_bytes; everything behind them in the cleared part is zero.
  std::vector<uint16_t> written_;
};
