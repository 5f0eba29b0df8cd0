// The device's tag table, loaded from the tag file and resolved against the dictionary.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "tag_index/result_slots.h"
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
  // Guarded mode only, set by each index build: why every request for this tag is refused
  // (a guard::reason, 0: none), the bytes of the item it names, and the element its
  // subscript names in an array of elementary values (counted from 1; 0: no subscript).
  uint8_t guard_refusal;
  uint32_t guard_extent;
  uint32_t guard_element;
};

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

  uint32_t wide_names;
  uint32_t tag_count = 0;
  tag_entry* entries = nullptr;
  // One per request position of the last host request (the request paths use them).
  result_slots slots;

 private:
  void build_name_index();
  std::unordered_map<std::string, uint32_t>
      name_index_;  // name (as strcmp sees it) -> first position
};

// Bytes per element of an access format (0..4); a string, which has none, takes 16.
uint32_t element_size_of_format(int format, uint16_t type_id);

// Adds the byte size of structured type type_id to size (an accumulator).
void calculate_block_size(std::map<unsigned short, std::vector<data_type>>& struct_members,
                          unsigned short& type_id, unsigned int& size);
