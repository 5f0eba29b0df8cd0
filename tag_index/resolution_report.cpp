#include "tag_index/resolution_report.h"

#include <cstdint>
#include <exception>
#include <string_view>

#include "dictionary/type_sizes.h"
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
  // as the index build counts it; 0 for a structure the build could not size (one with no
  // members), which the build itself sizes only where a tag needs it.
  uint32_t size_of(unsigned short id) const {
    if (structs.count(id) != 0) {
      unsigned int size = 0;
      try {
        ::dictionary::add_block_size(structs, id, size);
      } catch (const std::exception&) {
        return 0;
      }
      return size;
    }
    return ::dictionary::element_size_of_format(read_comm::get_read_format_from_type(id), id);
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
  remove_array_index(held);  // which keeps the terminating zero
  held.pop_back();
  return held;
}

// Why the index build cannot read a name: an empty part, or a subscript that is not a list
// of integers. Said in the name's own terms, not the library's.
std::string unreadable(std::string_view name) {
  if (name.empty()) return "the name is empty";
  if (name.front() == '.') return "the name starts with '.'";
  if (name.back() == '.') return "the name ends with '.'";
  if (name.find("..") != std::string_view::npos) return "the name holds '..' (an empty part)";
  for (std::size_t from = 0; from <= name.size();) {
    const std::size_t dot = std::min(name.find('.', from), name.size());
    const std::string_view part = name.substr(from, dot - from);
    try {
      std::vector<int> indices;
      text_of(part, indices);
    } catch (const std::exception&) {
      const std::size_t open = part.find('[');
      const std::string_view subscript = open == std::string_view::npos ? part : part.substr(open);
      return "the subscript " + std::string(subscript) + " of '" +
             std::string(part.substr(0, open)) + "' is not a list of integers";
    }
    from = dot + 1;
  }
  return "the name cannot be read";
}

// The verdict on one tag, walked as the index build walks it.
struct verdict {
  bool resolved = false;
  std::string reason;        // why not, or what the walk skipped on its way
  bool subscripted = false;  // the variable part has a subscript
  int32_t base_subscript = 0;
  const table* variable = nullptr;
};

// The first member named member (without its zero), or null.
const data_type* member_named(const std::vector<data_type>& members, const std::string& member) {
  for (const data_type& m : members) {
    if (m.name == member + '\0') return &m;
  }
  return nullptr;
}

verdict walk(std::string_view name, const dictionary& d) {
  verdict v;
  const std::vector<std::string_view> parts = split_at_dots(name);
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
    if (members == d.structs.end()) {
      // Passed over unread, as the index build passes it.
      v.reason +=
          "'" + std::string(parts[i]) + "' skipped, " + d.type_name(current) + " has no members; ";
      continue;
    }
    const std::string member = text_of(parts[i], indices);
    const data_type* match = member_named(members->second, member);
    if (match == nullptr) {
      v.reason += "unknown member '" + member + "' in structure " + d.type_name(current) +
                  " (the walk went on with the next part); ";
      continue;
    }
    const uint16_t type = ::dictionary::member_type_id(*match);
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

// Whether a resolved tag lies inside its variable, said when it does not (or when it is
// not the element its subscript names); counts the tags outside. name: escaped already.
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
  const bool before = v.base_subscript < 0;
  const bool past = !before && end > extent;
  if (!before && !past && low == 0) return;
  if (before || past) ++outside;
  if (!say) return;
  const char* where = before ? " outside=1 (lies before the array, in what precedes it)"
                      : past ? " outside=1 (lies past the array, in what follows it)"
                             : " (counted from 0: not the element the subscript declares)";
  trace::emit("extent",
              "tag=%s variable_type=\"%s\" subscript=%d counted_from_start=1 element=%d "
              "offset=%llu extent=%llu%s",
              name, trace::escaped(d.type_name(v.variable->type_id), true).c_str(),
              v.base_subscript, static_cast<int>(low) + v.base_subscript,
              static_cast<unsigned long long>(entry.member_offset),
              static_cast<unsigned long long>(extent), where);
}

// The lines of tag i (when say); whether it resolved. unreadable_name: the tag's name
// cannot be read (the index build stops there).
bool report_tag(uint32_t i, const tag_entry& entry, bool wide, const dictionary& d, bool say,
                unsigned& outside, bool& unreadable_name) {
  // Wide names are read up to their first zero byte, as the index build reads them.
  std::string_view name = entry.name != nullptr ? entry.name : "";
  const std::size_t open = name.find('['), close = name.find(']');
  if (open != std::string_view::npos && close == name.size() - 1) {
    if (say)
      trace::emit("subscript",
                  "tag=%u name=%s the subscript of the whole name is dropped; "
                  "the request's array_index selects the element",
                  i, trace::escaped(name).c_str());
    name = name.substr(0, open);
  }
  verdict v;
  try {
    v = walk(name, d);
  } catch (const std::exception&) {
    v.reason = unreadable(name);
    unreadable_name = true;
  }
  const trace::escaped shown(name);
  if (!v.resolved) {
    if (say)
      trace::emit("unresolved", "tag=%u name=%s%s reason=\"%s\"", i, shown.c_str(),
                  wide ? " wide_name=1 (read up to its first zero byte)" : "",
                  trace::escaped(v.reason, true).c_str());
    return false;
  }
  if (say && !v.reason.empty())
    trace::emit("resolved-skipping", "tag=%u name=%s note=\"%s\"", i, shown.c_str(),
                trace::escaped(v.reason, true).c_str());
  check_extent(shown.c_str(), entry, v, d, say, outside);
  return true;
}

// What in the dictionary stops the index build, when no tag name does.
std::string dictionary_fault(const dictionary& d) {
  for (const auto& [id, members] : d.structs) {
    if (members.empty())
      return "structure " + d.type_name(id) + " has no members, so it has no size";
    for (const data_type& m : members) {
      if (m.bounds.size() < 2 || m.member_offset_bytes.size() < 4)
        return "a member record of structure " + d.type_name(id) + " is too short";
    }
  }
  return "a dictionary record is too short for a field";
}

void report(const offline_CTagTable_578& tags, const dictionary& d, bool failed, bool again) {
  unsigned resolved = 0, outside = 0;
  std::string stop;  // why the build stopped, when it did
  for (uint32_t i = 0; i < tags.tag_count; ++i) {
    bool unreadable_name = false;
    if (report_tag(i, tags.entries[i], tags.wide_names != 0, d, !again, outside, unreadable_name))
      ++resolved;
    if (failed && unreadable_name && stop.empty())
      stop = "the name of tag " + std::to_string(i) + " cannot be read";
  }
  if (failed && stop.empty()) stop = dictionary_fault(d);
  if (failed) stop = "the index build stopped: " + stop + "; the tags after it stay unresolved";
  trace::emit("resolution", "tags=%u resolved=%u unresolved=%u outside=%u%s%s%s%s", tags.tag_count,
              resolved, tags.tag_count - resolved, outside, again ? " again=1" : "",
              failed ? " failed=\"" : "", trace::escaped(stop, true).c_str(), failed ? "\"" : "");
}

}  // namespace

void trace_index(const offline_CTagTable_578& tags, const std::map<std::string, table>& tables,
                 const member_map& struct_members,
                 const std::map<unsigned short, data_type>& data_types, bool failed, bool again) {
  if (!trace::on) return;
  // The trace's own work never reaches the driver: whatever it raises ends the account.
  try {
    report(tags, dictionary{tables, struct_members, data_types}, failed, again);
  } catch (...) {
    trace::emit("resolution", "tags=%u (the account of the tags could not be finished)",
                tags.tag_count);
  }
}

}  // namespace resolution_report
