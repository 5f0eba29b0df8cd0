#include <algorithm>
#include <array>
#include <cstring>
#include <functional>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

#include "tag_index/tag_names.h"
#include "tag_index/tag_table.h"
#include "unity/dictionary_records.h"
#include "wire/byte_cursor.h"
#include "wire/subscript.h"
#include "wire/unity_constants.h"

namespace {

using member_map = std::map<unsigned short, std::vector<data_type>>;

uint16_t member_type_id(const data_type& member) {
  return wire::le_reader(member.bounds).u16();
}

uint32_t member_byte_offset(const data_type& member) {
  return wire::le_reader(member.member_offset_bytes).u32();
}

// Bytes per element of an access format (0..4); a string, which has none, takes 16.
uint32_t element_size_of_format(int format, uint16_t type_id) {
  constexpr uint32_t sizes[] = {1, 1, 2, 4, 8};
  if (format >= 0 && format < 5) return sizes[format];
  return type_id == wire::string_type ? 16 : 0;
}

void copy_location(const std::vector<unsigned char>& from, std::array<unsigned char, 6>& to) {
  for (std::size_t i = 0; i < to.size(); ++i) {
    to[i] = from.at(i);
  }
}

// A whole-name subscript ("a.b[3]", "a[1,2]") addresses elements per request, not here.
void strip_whole_name_subscript(std::string& name) {
  const std::size_t open = name.find('[');
  const std::size_t close = name.find(']');
  if (open != std::string::npos && close == name.size() - 1) {
    name.erase(open);
  }
}

// The types met on one descent through last members. Nearly every descent is one or two
// levels deep, so the first few live in place and only a deep (or hostile) one allocates.
class type_path {
 public:
  void insert(unsigned short type) {
    if (contains(type)) return;
    if (near_count_ < near_.size()) {
      near_[near_count_++] = type;
    } else {
      far_.insert(type);
    }
  }
  bool contains(unsigned short type) const {
    for (std::size_t i = 0; i < near_count_; ++i) {
      if (near_[i] == type) return true;
    }
    return !far_.empty() && far_.count(type) != 0;
  }

 private:
  std::array<unsigned short, 8> near_{};
  std::size_t near_count_ = 0;
  std::set<unsigned short> far_;
};

std::string zero_terminated(const std::string& text) {
  return text + '\0';
}

const data_type* find_member(const std::vector<data_type>& members, const std::string& name) {
  for (const data_type& member : members) {
    if (member.name == name) {
      return &member;
    }
  }
  return nullptr;
}

// calculate_block_size on a map it only reads.
void add_block_size(const member_map& struct_members, unsigned short type_id, unsigned int& size) {
  // The descent through last members is a loop, not recursion, and stops at a type that
  // repeats on its own path: a hostile dictionary with a cycle cannot run for ever.
  type_path path;
  unsigned short current = type_id;
  for (;;) {
    const auto members = struct_members.find(current);
    if (members == struct_members.end()) {
      return;
    }
    path.insert(current);
    const data_type& last = members->second.at(members->second.size() - 1);
    const uint32_t last_offset = member_byte_offset(last);
    const uint16_t last_type = member_type_id(last);
    const int format = read_comm::get_read_format_from_type(last_type);
    if (struct_members.count(last_type) != 0) {
      if (format != 255 || path.contains(last_type)) {
        return;
      }
      size += last_offset;
      current = last_type;
      continue;
    }
    // A non-zero accumulated size keeps as it is: the innermost last offset is not added.
    size = (size != 0 ? size : last_offset) + element_size_of_format(format, last_type);
    return;
  }
}

// "a..b." gives "a", "", "b", "": every dot ends a part, empty parts are kept. Split by
// hand: boost's split builds its result through a chain of iterator adaptors that cost
// more than the rest of a tag's resolution.
std::vector<std::string> split_at_dots(const std::string& name) {
  std::vector<std::string> parts;
  std::size_t start = 0;
  for (;;) {
    const std::size_t dot = name.find('.', start);
    if (dot == std::string::npos) {
      parts.emplace_back(name, start);
      return parts;
    }
    parts.emplace_back(name, start, dot - start);
    start = dot + 1;
  }
}

// Walks the member parts of one tag below its variable; true when a part was stored.
bool resolve_member_path(tag_entry& entry, const std::vector<std::string>& parts,
                         const table& variable, const std::vector<int>& base_indices,
                         const member_map& struct_members) {
  unsigned short current_type = variable.type_id;
  unsigned int variable_size = 0;
  add_block_size(struct_members, current_type, variable_size);
  uint32_t accumulated = 0;
  bool stored = false;
  for (std::size_t p = 1; p < parts.size(); ++p) {
    const auto members = struct_members.find(current_type);
    if (members == struct_members.end()) {
      continue;
    }
    std::string member_name = zero_terminated(parts[p]);
    const std::vector<int> member_indices = pares_array_indices_from_subscript(member_name);
    remove_array_index(member_name);
    const data_type* member = find_member(members->second, member_name);
    if (member == nullptr) {
      continue;
    }
    uint64_t offset = member_byte_offset(*member);
    unsigned short member_type = member_type_id(*member);
    entry.read_format = static_cast<uint32_t>(read_comm::get_read_format_from_type(member_type));
    entry.type_id = member_type;
    unsigned int member_size = 0;
    if (!member_indices.empty()) {
      add_block_size(struct_members, member_type, member_size);
    }
    if (entry.read_format == 255 && struct_members.count(member_type) != 0) {
      current_type = member_type;
      accumulated += static_cast<uint32_t>(offset);
      if (!member_indices.empty()) {
        accumulated += member_size * static_cast<uint32_t>(member_indices.front());
      }
      continue;
    }
    // Only the first number of a subscript list is used, and 32-bit products wrap.
    if (!base_indices.empty()) {
      offset += variable_size * static_cast<uint32_t>(base_indices.front());
    }
    offset += accumulated;
    entry.member_offset = offset;
    copy_location(variable.location, entry.location);
    stored = true;
  }
  return stored;
}

// The variables by name, hashed: the map's own look-up compares long common prefixes
// ("Var_000123") at every level of its tree, and a handshake looks up every tag. Open
// addressing in one array: building it allocates once, not once per variable.
class variable_index {
 public:
  explicit variable_index(const std::map<std::string, table>& tables) {
    std::size_t size = 16;
    while (size < 2 * tables.size()) size *= 2;
    slots_.resize(size);
    for (const auto& [name, variable] : tables) {
      std::size_t i = first_slot(name);
      while (slots_[i].second != nullptr) i = (i + 1) & (size - 1);
      slots_[i] = {name, &variable};
    }
  }

  // The variable named name exactly, or null.
  const table* find(std::string_view name) const {
    for (std::size_t i = first_slot(name);; i = (i + 1) & (slots_.size() - 1)) {
      const auto& [key, variable] = slots_[i];
      if (variable == nullptr || key == name) return variable;
    }
  }

 private:
  std::size_t first_slot(std::string_view name) const {
    return std::hash<std::string_view>{}(name) & (slots_.size() - 1);
  }

  // Never full: at most half the slots are used, so every probe ends at an empty one.
  std::vector<std::pair<std::string_view, const table*>> slots_;
};

bool resolve_tag(tag_entry& entry, const variable_index& variables,
                 const member_map& struct_members) {
  // Wide names are read up to their first zero byte, as the 8-bit text they start with.
  std::string name = entry.name != nullptr ? entry.name : "";
  entry.location.fill(0);
  entry.member_offset = 0;
  strip_whole_name_subscript(name);
  const std::vector<std::string> parts = split_at_dots(name);
  std::string base = zero_terminated(parts.at(0));
  const std::vector<int> base_indices = pares_array_indices_from_subscript(base);
  remove_array_index(base);
  const table* found = variables.find(base);
  if (found == nullptr) {
    return false;
  }
  const table& variable = *found;
  if (parts.size() == 1) {
    entry.read_format = static_cast<uint32_t>(variable.read_format);
    entry.type_id = variable.type_id;
    copy_location(variable.location, entry.location);
    return true;
  }
  return resolve_member_path(entry, parts, variable, base_indices, struct_members);
}

}  // namespace

int offline_CTagTable_578::setup_memory_index(
    std::map<std::string, table> tables,
    std::map<unsigned short, std::vector<data_type>> struct_members,
    [[maybe_unused]] std::map<unsigned short, data_type> data_types) {
  return setup_memory_index_in_place(tables, struct_members);
}

int offline_CTagTable_578::setup_memory_index_in_place(const std::map<std::string, table>& tables,
                                                       const member_map& struct_members) {
  if (tag_count == 0) {
    return 0;
  }
  const variable_index variables(tables);
  int resolved = 0;
  for (uint32_t i = 0; i < tag_count; ++i) {
    if (resolve_tag(entries[i], variables, struct_members)) {
      resolved = 1;
    }
  }
  return resolved;
}

void calculate_block_size(std::map<unsigned short, std::vector<data_type>>& struct_members,
                          unsigned short& type_id, unsigned int& size) {
  add_block_size(struct_members, type_id, size);
}
