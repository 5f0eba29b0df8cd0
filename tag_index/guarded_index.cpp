#include "tag_index/guarded_index.h"

#include <exception>
#include <string_view>

#include "guard/guard.h"
#include "tag_index/tag_names.h"
#include "wire/subscript.h"
#include "wire/unity_constants.h"

namespace guarded_index {
namespace {

using dictionary::member_map;
using dictionary::type_sizes;

// One dotted part of a name: its text and the numbers of its one trailing subscript.
struct name_part {
  std::string_view text;
  std::vector<int> numbers;
  bool subscripted = false;
};

// Splits "Pumps[3]" into "Pumps" and {3}; false for anything else that holds a bracket
// ("a[1][2]", "a[1]b", "a[x]", "a[]"), and for an empty text.
bool read_part(std::string_view part, name_part& out) {
  out = name_part{};
  const std::size_t open = part.find('[');
  out.text = part.substr(0, open);
  if (out.text.empty() || out.text.find(']') != std::string_view::npos) return false;
  if (open == std::string_view::npos) return true;
  const std::string_view inside = part.substr(open + 1);
  if (inside.empty() || inside.back() != ']') return false;
  const std::string_view numbers = inside.substr(0, inside.size() - 1);
  if (numbers.find_first_of("[]") != std::string_view::npos) return false;
  try {
    out.numbers = parse_array_indices(std::string(numbers));
  } catch (const std::exception&) {
    return false;
  }
  out.subscripted = true;
  return out.numbers.size() == 1;  // arrays have one dimension
}

const data_type* find_member(const std::vector<data_type>& members, std::string_view text) {
  for (const data_type& m : members) {
    if (m.name.size() == text.size() + 1 && m.name.back() == '\0' &&
        m.name.compare(0, text.size(), text) == 0) {
      return &m;
    }
  }
  return nullptr;
}

// The subscript of the last part on an array of elementary values: the declared one,
// so that Levels[3] of ARRAY[1..10] is the element declared so.
uint8_t take_element(const name_part& part, unsigned short id, const type_sizes& sizes,
                     uint32_t& element) {
  int32_t low = 0;
  uint32_t count = 0;
  unsigned short element_type = 0;
  if (!sizes.array_of(id, low, count, element_type)) return guard::subscript_on_value;
  const int64_t k = int64_t{part.numbers.front()} - low;
  if (k < 0 || k >= int64_t{count}) return guard::subscript_outside;
  element = static_cast<uint32_t>(k) + 1;
  return guard::served;
}

// Takes the subscript of a part on an item of type id. On an array of structures it
// counts from 0 whatever the declared low bound, as the index build places it, and the
// item becomes the element; on the last part, an array of elementary values keeps the
// element (see take_element). An array of structures without a subscript names no element.
uint8_t take_subscript(const name_part& part, bool last, unsigned short& id,
                       const type_sizes& sizes, uint32_t& element) {
  int32_t low = 0;
  uint32_t count = 0;
  unsigned short element_type = 0;
  const bool array = sizes.array_of(id, low, count, element_type);
  const bool of_structures = array && sizes.is_structure(element_type);
  if (!part.subscripted) return of_structures && !last ? guard::needs_subscript : guard::served;
  if (!of_structures) {
    if (last && array) return take_element(part, id, sizes, element);
    return guard::subscript_on_value;
  }
  const int k = part.numbers.front();
  if (k < 0 || static_cast<uint32_t>(k) >= count) return guard::subscript_outside;
  id = element_type;
  return guard::served;
}

// Walks the parts of a name from its variable; leaves `type` at the type of the item
// named.
uint8_t walk_parts(const std::vector<std::string_view>& parts, const table& variable,
                   unsigned short& type, const type_sizes& sizes, uint32_t& element) {
  type = variable.type_id;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    name_part part;
    if (!read_part(parts[i], part)) return guard::malformed_name;
    if (i > 0) {
      if (!sizes.is_structure(type)) return guard::member_of_value;
      const data_type* member = find_member(*sizes.members_of(type), part.text);
      if (member == nullptr) return guard::unknown_member;
      type = dictionary::member_type_id(*member);
    }
    const uint8_t why = take_subscript(part, i + 1 == parts.size(), type, sizes, element);
    if (why != guard::served) return why;
  }
  if (sizes.is_structure(type) || sizes.is_structure_array(type)) return guard::names_a_structure;
  return guard::served;
}

}  // namespace

verdict judge_name(const char* text, uint64_t member_offset,
                   const std::map<std::string, table>& tables, const type_sizes& sizes) {
  verdict v;
  const std::vector<std::string_view> parts = split_at_dots(text != nullptr ? text : "");
  name_part base;
  // A malformed part anywhere says more than what the walk meets before it.
  for (std::size_t i = parts.size(); i-- > 0;) {
    if (!read_part(parts[i], base)) {
      v.refusal = guard::malformed_name;
      return v;
    }
  }
  const auto found = tables.find(std::string(base.text) + '\0');
  if (found == tables.end()) {
    v.refusal = guard::unknown_variable;
    return v;
  }
  unsigned short type = 0;
  v.refusal = walk_parts(parts, found->second, type, sizes, v.element);
  if (v.refusal != guard::served) return v;
  const uint64_t extent = sizes.size_of(type);
  const uint64_t variable_extent = sizes.size_of(found->second.type_id);
  if (extent == 0 || variable_extent == 0 || extent > 0xFFFFFFFFu) {
    v.refusal = guard::size_unknown;
  } else if (member_offset + extent > variable_extent) {
    v.refusal = guard::outside_variable;
  }
  v.extent = static_cast<uint32_t>(extent);
  return v;
}

void judge(offline_CTagTable_578& tags, const std::map<std::string, table>& tables,
           const member_map& structs, const std::map<unsigned short, data_type>& types) {
  const type_sizes sizes(structs, types);
  for (uint32_t i = 0; i < tags.tag_count; ++i) {
    tag_entry& entry = tags.entries[i];
    const verdict v = judge_name(entry.name, entry.member_offset, tables, sizes);
    // The name's own reason says more than the build's "not resolved".
    if (v.refusal != guard::served) entry.guard_refusal = v.refusal;
    entry.guard_extent = v.extent;
    entry.guard_element = v.element;
  }
}

}  // namespace guarded_index
