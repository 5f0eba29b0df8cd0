// Guarded mode's verdict on every tag of the table after an index build: a tag is served
// only when its name says exactly one item of the dictionary and that item lies inside
// its variable. The verdict goes into each entry's guard fields; the request path checks
// each request against them.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "dictionary/dictionary_records.h"
#include "dictionary/type_sizes.h"
#include "tag_index/tag_table.h"

namespace guarded_index {

// What a guarded request needs to know of one tag.
struct verdict {
  uint8_t refusal = 0;   // guard::reason
  uint32_t extent = 0;   // bytes of the named item
  uint32_t element = 0;  // subscripted element of an elementary array, from 1; 0: none
};

// The verdict on one name (8-bit text) resolved by the build at member_offset.
verdict judge_name(const char* name, uint64_t member_offset,
                   const std::map<std::string, table>& tables, const dictionary::type_sizes& sizes);

// Sets the guard fields of every entry. The build has left guard_refusal set on the
// entries it did not resolve; they stay refused whatever the name says.
void judge(offline_CTagTable_578& tags, const std::map<std::string, table>& tables,
           const std::map<unsigned short, std::vector<data_type>>& structs,
           const std::map<unsigned short, data_type>& types);

}  // namespace guarded_index
