#include "tag_index/resolution_report.h"

#include <cstdint>
#include <exception>
#include <string_view>

#include "tag_index/tag_names.h"
#include "trace/trace.h"
#include "wire/byte_cursor.h"
#include "wire/subscript.h"

namespace resolution_report {
namespace {

using member_map = std::map<unsigned short, std::vector<data_type>>;

// What the trace knows of the dictionary, for names and sizes.
struct dictionary {
  const std::map<std::string, table>& tables;
  const member_map& structs;
  const std::map<unsigned short, data_type>& types;

  std::string type_name(unsigned short id) const {
    const auto found = types.find(id);
    if (found == types.end() || found->second.name.empty()) return "type " + std::to_string(id);
    return found->second.name.substr(0, found->second.name.size() - 1);
  }
  // Bytes of one value of type id: a structure's block size, an elementary type's width
  // as the index build counts it.
  uint32_t size_of(unsigned short id) const {
    if (structs.count(id) != 0) {
      unsigned int size = 0;
      // calculate_block_size only reads the map it is given.
      calculate_block_size(const_cast<member_map&>(structs), id, size);
      return size;
    }
    return element_size_of_format(read_comm::get_read_format_from_type(id), id);
  }
};

// Low bound and element count of an array type; false for any other type.
bool array_shape(const data_type& type, int32_t& low, uint32_t& count) {
  if (type.bounds.size() < 2 || type.bounds[0] == 0 || type.element_type == 0) return false;
  std::vector<unsigned char> padded = type.bounds;
  padded.resize(1 + 8 * std::size_t{type.bounds[0]} + 1, 0);  // the last bound lacks its top byte
  wire::le_reader in(padded, 1);
  low = static_cast<int32_t>(in.u32());
  const auto high = static_cast<int32_t>(in.u32());
  if (high < low) return false;
  count = static_cast<uint32_t>(high - low) + 1;
  return true;
}

// A name part without its subscript, whose numbers go to indices, as the index build
// reads and strips them.
std::string text_of(std::string_view part, std::vector<int>& indices) {
  std::string held(part);
  held.push_back('\0');
  indices = pares_array_indices_from_subscript(held);
  remove_array_index(held);
  if (!held.empty() && held.back() == '\0') held.pop_back();
  return held;
}

// The verdict on one tag, walked as the index build walks it.
struct verdict {
  bool resolved = false;
  std::string reason;        // why not, or what the walk skipped on its way
  bool subscripted = false;  // the variable part has a subscript
  int32_t base_subscript = 0;
  const table* variable = nullptr;
};

verdict walk(std::string_view name, const dictionary& d) {
  verdict v;
  std::vector<std::string_view> parts;
  for (std::size_t from = 0;;) {
    const std::size_t dot = name.find('.', from);
    parts.push_back(name.substr(from, dot == std::string_view::npos ? dot : dot - from));
    if (dot == std::string_view::npos) break;
    from = dot + 1;
  }
  std::vector<int> indices;
  const std::string base = text_of(parts[0], indices);
  v.subscripted = !indices.empty();
  if (v.subscripted) v.base_subscript = indices.front();
  const auto found = d.tables.find(base + '\0');
  if (found == d.tables.end()) {
    v.reason = "unknown variable '" + base + "'";
    return v;
  }
  v.variable = &found->second;
  if (parts.size() == 1) {
    v.resolved = true;
    return v;
  }
  unsigned short current = found->second.type_id;
  bool ends_in_structure = false;
  for (std::size_t i = 1; i < parts.size(); ++i) {
    const auto members = d.structs.find(current);
    const std::string member = text_of(parts[i], indices);
    if (members == d.structs.end()) {
      v.reason += "'" + member + "' skipped, " + d.type_name(current) + " has no members; ";
      continue;
    }
    const data_type* match = nullptr;
    for (const data_type& m : members->second) {
      if (m.name == member + '\0') match = match ? match : &m;
    }
    if (match == nullptr) {
      v.reason += "unknown member '" + member + "' in structure " + d.type_name(current) +
                  " (the walk went on with the next part); ";
      continue;
    }
    const uint16_t type = wire::le_reader(match->bounds).u16();
    ends_in_structure =
        read_comm::get_read_format_from_type(type) == 255 && d.structs.count(type) != 0;
    if (ends_in_structure) {
      current = type;
    } else {
      v.resolved = true;
    }
  }
  if (!v.resolved && ends_in_structure) {
    v.reason += "the path ends in structure " + d.type_name(current) + ": name a member; ";
  }
  if (!v.reason.empty()) v.reason.resize(v.reason.size() - 2);
  return v;
}

// Whether a resolved tag lies inside its variable, said when it does not.
void check_extent(const char* name, const tag_entry& entry, const verdict& v, const dictionary& d,
                  bool say, unsigned& outside) {
  const auto type = d.types.find(v.variable->type_id);
  int32_t low = 0;
  uint32_t count = 0;
  const bool array = type != d.types.end() && array_shape(type->second, low, count);
  if (!array || !v.subscripted) return;
  const uint32_t element = d.size_of(type->second.element_type);
  const uint64_t extent = uint64_t{element} * count;
  const uint64_t end = entry.member_offset + d.size_of(entry.type_id);
  if (end <= extent && low == 0) return;
  ++outside;
  if (!say) return;
  trace::emit("extent",
              "tag=%s variable_type=\"%s\" subscript=%d counted_from_start=1 element=%d "
              "offset=%llu extent=%llu%s",
              name, d.type_name(v.variable->type_id).c_str(), v.base_subscript,
              static_cast<int>(low) + v.base_subscript,
              static_cast<unsigned long long>(entry.member_offset),
              static_cast<unsigned long long>(extent),
              end > extent ? " outside=1 (reads past the array, into what follows it)"
                           : " (not the element the subscript names)");
}

// The lines of tag i (when say); whether it resolved.
bool report_tag(uint32_t i, const tag_entry& entry, bool wide, const dictionary& d, bool say,
                unsigned& outside) {
  // Wide names are read up to their first zero byte, as the index build reads them.
  std::string_view name = entry.name != nullptr ? entry.name : "";
  const std::size_t open = name.find('['), close = name.find(']');
  if (open != std::string_view::npos && close == name.size() - 1) {
    if (say)
      trace::emit("subscript",
                  "tag=%u name=%.*s the subscript of the whole name is dropped; "
                  "the request's array_index selects the element",
                  i, static_cast<int>(name.size()), name.data());
    name = name.substr(0, open);
  }
  verdict v;
  try {
    v = walk(name, d);
  } catch (const std::exception& e) {
    v.reason = std::string("bad subscript or empty name part (") + e.what() + ")";
  }
  const std::string shown(name);
  if (!v.resolved) {
    if (say)
      trace::emit("unresolved", "tag=%u name=%s%s reason=\"%s\"", i, shown.c_str(),
                  wide ? " wide_name=1 (read up to its first zero byte)" : "", v.reason.c_str());
    return false;
  }
  if (say && !v.reason.empty())
    trace::emit("resolved-skipping", "tag=%u name=%s note=\"%s\"", i, shown.c_str(),
                v.reason.c_str());
  check_extent(shown.c_str(), entry, v, d, say, outside);
  return true;
}

}  // namespace

void trace_index(const offline_CTagTable_578& tags, const std::map<std::string, table>& tables,
                 const member_map& struct_members,
                 const std::map<unsigned short, data_type>& data_types, const char* failure,
                 bool again) {
  if (!trace::on) return;
  const dictionary d{tables, struct_members, data_types};
  unsigned resolved = 0, outside = 0;
  for (uint32_t i = 0; i < tags.tag_count; ++i) {
    if (report_tag(i, tags.entries[i], tags.wide_names != 0, d, !again, outside)) ++resolved;
  }
  trace::emit("resolution", "tags=%u resolved=%u unresolved=%u outside=%u%s%s%s", tags.tag_count,
              resolved, tags.tag_count - resolved, outside, again ? " again=1" : "",
              failure ? " failed=" : "", failure ? failure : "");
}

}  // namespace resolution_report
