#include <algorithm>
#include <array>
#include <cstring>
#include <exception>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

#include "guard/guard.h"
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

void copy_location(const std::vector<unsigned char>& from, std::array<unsigned char, 6>& to) {
  for (std::size_t i = 0; i < to.size(); ++i) {
    to[i] = from.at(i);
  }
}

// A whole-name subscript ("a.b[3]", "a[1,2]") addresses elements per request, not here.
void strip_whole_name_subscript(std::string_view& name) {
  const std::size_t open = name.find('[');
  const std::size_t close = name.find(']');
  if (open != std::string_view::npos && close == name.size() - 1) {
    name = name.substr(0, open);
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

// The member named text + '\0' exactly, or null: a member's name keeps its zero.
const data_type* find_member(const std::vector<data_type>& members, std::string_view text) {
  for (const data_type& member : members) {
    const std::string& name = member.name;
    // Members of one structure often differ only in their last characters
    // ("Member_000001"): those are compared before the whole name.
    if (name.size() == text.size() + 1 && name.back() == '\0' &&
        (text.empty() || name[text.size() - 1] == text.back()) &&
        name.compare(0, text.size(), text) == 0) {
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

// The parts of a name between dots, empty ones kept: "a..b." gives "a", "", "b", "".
// Views into the name: a tag's resolution builds no vector of copied parts.
class dotted_parts {
 public:
  explicit dotted_parts(std::string_view name) : rest_(name) {}
  bool empty() const { return done_; }
  std::string_view next() {
    const std::size_t dot = rest_.find('.');
    const std::string_view part = rest_.substr(0, dot);
    if (dot == std::string_view::npos) {
      done_ = true;
    } else {
      rest_.remove_prefix(dot + 1);
    }
    return part;
  }

 private:
  std::string_view rest_;
  bool done_ = false;
};

// What pares_array_indices_from_subscript and remove_array_index make of part + '\0'.
std::string_view read_and_strip_subscript(std::string_view part, std::vector<int>& indices,
                                          std::string& scratch) {
  scratch.assign(part.data(), part.size());
  scratch.push_back('\0');
  indices = pares_array_indices_from_subscript(scratch);
  remove_array_index(scratch);
  return std::string_view(scratch).substr(0, scratch.size() - 1);
}

// The numbers of the trailing subscript of a name part into indices, and the part without
// that subscript (returned without the zero). A part that does not end in ']' has no
// subscript to read or strip and is returned as it is; any other, the empty one included,
// takes the long way above, with its exceptions.
std::string_view without_subscript(std::string_view part, std::vector<int>& indices,
                                   std::string& scratch) {
  if (!part.empty() && part.back() != ']') {
    indices.clear();
    return part;
  }
  return read_and_strip_subscript(part, indices, scratch);
}

// The structure types by id in one array, each one's block size worked out once: a
// handshake asks for the same few thousand types for every tag, and the ordered map's
// look-up and the walk through last members would run again each time.
class struct_index {
 public:
  explicit struct_index(const member_map& struct_members) : map_(struct_members) {
    if (struct_members.empty()) return;
    first_ = struct_members.begin()->first;
    slots_.resize(std::size_t{struct_members.rbegin()->first} - first_ + 1);
    for (const auto& [id, members] : struct_members) slots_[id - first_].members = &members;
  }

  // The member list of type id, or null when the type has none.
  const std::vector<data_type>* find(unsigned short id) const {
    const std::size_t i = std::size_t{id} - first_;
    return i < slots_.size() ? slots_[i].members : nullptr;  // below first_ wraps past the end
  }

  // calculate_block_size of id from a zero size; the first call for a type computes it
  // (and raises what that raises), later calls take the result.
  uint32_t block_size(unsigned short id) {
    if (find(id) == nullptr) return 0;
    slot& s = slots_[id - first_];
    if (!s.size_known) {
      unsigned int size = 0;
      add_block_size(map_, id, size);
      s.size = size;
      s.size_known = true;
    }
    return s.size;
  }

 private:
  struct slot {
    const std::vector<data_type>* members = nullptr;
    uint32_t size = 0;
    bool size_known = false;
  };
  const member_map& map_;
  unsigned short first_ = 0;
  std::vector<slot> slots_;
};

// Working strings of one resolution, kept from tag to tag so that a subscript allocates
// only while they grow.
struct scratch_space {
  std::string base;
  std::string member;
  std::vector<int> base_indices;
  std::vector<int> member_indices;
};

// Walks the member parts of one tag below its variable; true when a part was stored.
bool resolve_member_path(tag_entry& entry, dotted_parts parts, const table& variable,
                         const std::vector<int>& base_indices, struct_index& structs,
                         scratch_space& scratch) {
  unsigned short current_type = variable.type_id;
  const uint32_t variable_size = structs.block_size(current_type);
  uint32_t accumulated = 0;
  bool stored = false;
  while (!parts.empty()) {
    const std::string_view part = parts.next();
    const std::vector<data_type>* members = structs.find(current_type);
    if (members == nullptr) {
      continue;
    }
    std::vector<int>& member_indices = scratch.member_indices;
    const data_type* member =
        find_member(*members, without_subscript(part, member_indices, scratch.member));
    if (member == nullptr) {
      continue;
    }
    uint64_t offset = member_byte_offset(*member);
    unsigned short member_type = member_type_id(*member);
    entry.read_format = static_cast<uint32_t>(read_comm::get_read_format_from_type(member_type));
    entry.type_id = member_type;
    unsigned int member_size = 0;
    if (!member_indices.empty()) {
      member_size = structs.block_size(member_type);
    }
    if (entry.read_format == 255 && structs.find(member_type) != nullptr) {
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
      // Held without the zero that every name looked up ends in; a key without it can
      // never be found.
      if (name.empty() || name.back() != '\0') continue;
      const std::string_view text(name.data(), name.size() - 1);
      std::size_t i = first_slot(text);
      while (slots_[i].second != nullptr) i = (i + 1) & (size - 1);
      slots_[i] = {text, &variable};
    }
  }

  // The variable named name + '\0' exactly, or null.
  const table* find(std::string_view name) const {
    for (std::size_t i = first_slot(name);; i = (i + 1) & (slots_.size() - 1)) {
      const auto& [key, variable] = slots_[i];
      if (variable == nullptr || key == name) return variable;
    }
  }

 private:
  // Eight bytes per step, the tail as one more word, each step folding its high half down:
  // variable names are short, and the library's general-purpose hash costs more than the
  // rest of a look-up.
  std::size_t first_slot(std::string_view name) const {
    constexpr uint64_t odd = 0x9E3779B97F4A7C15u;
    uint64_t hash = name.size();
    const auto mix = [&hash](uint64_t word) {
      hash = (hash ^ word) * odd;
      hash ^= hash >> 32;
    };
    std::size_t i = 0;
    for (; i + 8 <= name.size(); i += 8) {
      uint64_t word = 0;
      std::memcpy(&word, name.data() + i, sizeof word);
      mix(word);
    }
    uint64_t tail = 0;
    for (; i < name.size(); ++i) tail = tail << 8 | static_cast<unsigned char>(name[i]);
    mix(tail);
    mix(0);
    return static_cast<std::size_t>(hash) & (slots_.size() - 1);
  }

  // Never full: at most half the slots are used, so every probe ends at an empty one.
  std::vector<std::pair<std::string_view, const table*>> slots_;
};

bool resolve_tag(tag_entry& entry, const variable_index& variables, struct_index& structs,
                 scratch_space& scratch) {
  // Wide names are read up to their first zero byte, as the 8-bit text they start with.
  std::string_view name = entry.name != nullptr ? entry.name : "";
  entry.location.fill(0);
  entry.member_offset = 0;
  strip_whole_name_subscript(name);
  dotted_parts parts(name);
  const std::string_view base = without_subscript(parts.next(), scratch.base_indices, scratch.base);
  const table* found = variables.find(base);
  if (found == nullptr) {
    return false;
  }
  const table& variable = *found;
  if (parts.empty()) {
    entry.read_format = static_cast<uint32_t>(variable.read_format);
    entry.type_id = variable.type_id;
    copy_location(variable.location, entry.location);
    return true;
  }
  return resolve_member_path(entry, parts, variable, scratch.base_indices, structs, scratch);
}

// Guarded: a tag that raises (a malformed subscript) is refused and the build goes on
// with the next; one that does not resolve is refused until a later build resolves it.
int resolve_guarded(tag_entry& entry, const variable_index& variables, struct_index& structs,
                    scratch_space& scratch) {
  entry.guard_refusal = guard::unknown_variable;
  try {
    if (!resolve_tag(entry, variables, structs, scratch)) return 0;
  } catch (const std::exception&) {
    entry.location.fill(0);
    entry.member_offset = 0;
    entry.guard_refusal = guard::malformed_name;
    return 0;
  }
  entry.guard_refusal = guard::served;
  return 1;
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
  struct_index structs(struct_members);
  scratch_space scratch;
  int resolved = 0;
  for (uint32_t i = 0; i < tag_count; ++i) {
    if (guard::on) {
      resolved |= resolve_guarded(entries[i], variables, structs, scratch);
    } else if (resolve_tag(entries[i], variables, structs, scratch)) {
      resolved = 1;
    }
  }
  return resolved;
}

uint32_t element_size_of_format(int format, uint16_t type_id) {
  constexpr uint32_t sizes[] = {1, 1, 2, 4, 8};
  if (format >= 0 && format < 5) return sizes[format];
  return type_id == wire::string_type ? 16 : 0;
}

void calculate_block_size(std::map<unsigned short, std::vector<data_type>>& struct_members,
                          unsigned short& type_id, unsigned int& size) {
  add_block_size(struct_members, type_id, size);
}
