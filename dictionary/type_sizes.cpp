#include "dictionary/type_sizes.h"

#include <array>
#include <exception>
#include <set>
#include <string>

#include "wire/byte_cursor.h"

namespace dictionary {

namespace {

// The types met on one descent through last members. Nearly every descent is one or two
// levels deep, so the first few live in place and only a deep (or hostile) one allocates.
class type_path {
 public:
  // type: not on the path yet (the descent stops at a type that repeats).
  void insert(unsigned short type) {
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

// The length of "STRING[n]".
uint64_t string_length(const std::string& name) {
  const std::size_t open = name.find('[');
  uint64_t n = 0;
  for (std::size_t i = open + 1; open != std::string::npos && i < name.size(); ++i) {
    if (name[i] < '0' || name[i] > '9') return name[i] == ']' ? n : 0;
    n = n * 10 + static_cast<uint64_t>(name[i] - '0');
    if (n > 0xFFFFFFFFu) return 0;
  }
  return 0;
}

}  // namespace

uint16_t member_type_id(const data_type& member) {
  return wire::le_reader(member.bounds).u16();
}

uint32_t member_byte_offset(const data_type& member) {
  return wire::le_reader(member.member_offset_bytes).u32();
}

uint32_t element_size_of_format(int format, uint16_t type_id) {
  constexpr uint32_t sizes[] = {1, 1, 2, 4, 8};
  if (format >= 0 && format < 5) return sizes[format];
  return type_id == string_type ? 16 : 0;
}

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
    size = (size != 0 ? size : last_offset) + dictionary::element_size_of_format(format, last_type);
    return;
  }
}

uint64_t type_sizes::size_of(unsigned short id, int depth) const {
  if (depth > 32) return 0;  // a dictionary whose types contain themselves
  int32_t low = 0;
  uint32_t count = 0;
  unsigned short element = 0;
  if (array_of(id, low, count, element)) return uint64_t{count} * size_of(element, depth + 1);
  const auto type = types_.find(id);
  if (type != types_.end() && type->second.element_type == dictionary::string_type &&
      type->second.bounds.empty()) {
    return string_length(type->second.name);
  }
  if (structs_.count(id) != 0) {
    unsigned int size = 0;
    try {
      dictionary::add_block_size(structs_, id, size);
    } catch (const std::exception&) {
      return 0;
    }
    return size;
  }
  return dictionary::element_size_of_format(read_comm::get_read_format_from_type(id), id);
}

bool type_sizes::array_of(unsigned short id, int32_t& low, uint32_t& count,
                          unsigned short& element) const {
  const auto type = types_.find(id);
  if (type == types_.end()) return false;
  const data_type& t = type->second;
  // One dimension: its count byte, the low bound, the high bound (whose top byte the
  // download leaves out: it copies 8 bytes from the count byte on).
  if (t.bounds.size() != 8 || t.bounds[0] != 1 || t.element_type == 0) return false;
  std::vector<unsigned char> padded = t.bounds;
  padded.push_back(0);
  wire::le_reader in(padded, 1);
  low = static_cast<int32_t>(in.u32());
  const int64_t high = static_cast<int32_t>(in.u32());
  if (high < low) return false;
  count = static_cast<uint32_t>(high - low + 1);
  element = t.element_type;
  return true;
}

bool type_sizes::is_structure_array(unsigned short id) const {
  int32_t low = 0;
  uint32_t count = 0;
  unsigned short element = 0;
  return array_of(id, low, count, element) && is_structure(element);
}

bool type_sizes::is_structure(unsigned short id) const {
  int32_t low = 0;
  uint32_t count = 0;
  unsigned short element = 0;
  const auto members = structs_.find(id);
  return members != structs_.end() && !members->second.empty() &&
         read_comm::get_read_format_from_type(id) == 255 && !array_of(id, low, count, element);
}

const std::vector<data_type>* type_sizes::members_of(unsigned short id) const {
  const auto members = structs_.find(id);
  return members != structs_.end() ? &members->second : nullptr;
}

}  // namespace dictionary
