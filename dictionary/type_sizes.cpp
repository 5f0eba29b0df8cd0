#include "dictionary/type_sizes.h"

#include <array>
#include <set>

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

}  // namespace dictionary
