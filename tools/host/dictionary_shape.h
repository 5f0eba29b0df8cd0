// What a controller data type looks like to a host request: PLC type code and count.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "dictionary/dictionary_records.h"

namespace panelhost {

struct tag_shape {
  uint8_t code = 0;       // 0: no PLC type code fits (a structure, an unknown id)
  uint16_t count = 1;     // elements (characters of a STRING)
  int32_t low_bound = 0;  // arrays: subscript of the first element
  bool is_array = false;
};

// Elementary type ids of the dictionary map to fixed codes; derived ids are looked up in
// data_types (STRING[n] by its name, arrays by element type and dimensions).
tag_shape shape_of_type(uint16_t type_id, const std::map<unsigned short, data_type>& data_types);

// Elements and first subscript of an array type; false when type is not an array.
bool array_elements(const data_type& type, uint32_t& elements, int32_t& low_bound);

// Declared [low, high] bounds per dimension; empty when type is not an array.
std::vector<std::pair<int32_t, int32_t>> array_dimensions(const data_type& type);

// Bytes a value of type_id takes in controller memory as the dictionary declares it:
// elementary widths, a STRING's declared length, elements times the element's size, and a
// structure up to the end of its furthest member. 0 when the type is unknown.
uint64_t declared_size(uint16_t type_id, const std::map<unsigned short, data_type>& data_types,
                       const std::map<unsigned short, std::vector<data_type>>& struct_members);

// Text for a dictionary type id: its name from data_types, or the elementary name.
std::string dictionary_type_name(uint16_t type_id,
                                 const std::map<unsigned short, data_type>& data_types);

}  // namespace panelhost
