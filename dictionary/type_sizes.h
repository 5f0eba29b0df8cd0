// What the controller's type ids mean for sizes: the type ids the driver treats apart, the
// bytes of an access format, and the size of a structure from its member list. The index
// build, its trace report and the guarded checks size types with these alone.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "dictionary/dictionary_records.h"

namespace dictionary {

// Controller type ids the driver treats apart from the others.
constexpr uint16_t string_type = 9;
constexpr uint16_t ebool_type = 25;

using member_map = std::map<unsigned short, std::vector<data_type>>;

// A structure member's type id and byte offset, from the bytes the dictionary gave.
uint16_t member_type_id(const data_type& member);
uint32_t member_byte_offset(const data_type& member);

// Bytes per element of an access format (0..4); a string, which has none, takes 16.
uint32_t element_size_of_format(int format, uint16_t type_id);

// Adds the byte size of structured type type_id to size (an accumulator): the offset of its
// last member plus that member's size, descending through last members that are
// structures. Raises std::out_of_range for a structure without members.
void add_block_size(const member_map& struct_members, unsigned short type_id, unsigned int& size);

// Bytes of one value of a dictionary type (an array, a structure, a string, an elementary
// type); 0 when the dictionary does not tell.
class type_sizes {
 public:
  type_sizes(const member_map& structs, const std::map<unsigned short, data_type>& types)
      : structs_(structs), types_(types) {}

  uint64_t size_of(unsigned short id, int depth = 0) const;
  // A one-dimensional array type: its declared low bound, element count and element type.
  bool array_of(unsigned short id, int32_t& low, uint32_t& count, unsigned short& element) const;
  // A structure (not an array of structures, which shares its element's member list).
  bool is_structure(unsigned short id) const;
  bool is_structure_array(unsigned short id) const;
  const std::vector<data_type>* members_of(unsigned short id) const;

 private:
  const member_map& structs_;
  const std::map<unsigned short, data_type>& types_;
};

}  // namespace dictionary
