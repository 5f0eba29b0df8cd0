#include "tools/host/dictionary_diff.h"

#include <algorithm>
#include <iomanip>
#include <sstream>

#include "tools/host/dictionary_shape.h"
#include "wire/byte_cursor.h"

namespace panelhost {

namespace {

std::string plain(const std::string& name) {
  return !name.empty() && name.back() == '\0' ? name.substr(0, name.size() - 1) : name;
}

void add(std::string& changes, const std::string& change) {
  changes += (changes.empty() ? "" : "; ") + change;
}

}  // namespace

std::string location_text(const wire::bytes& location) {
  if (location.size() < 6) return "?";
  wire::le_reader in(location);
  const uint16_t block = in.u16();
  std::ostringstream text;
  text << block << ":0x" << std::hex << std::setw(4) << std::setfill('0') << in.u32();
  return text.str();
}

std::string program_changes(const dictionary& before, const dictionary& after) {
  std::string removed, changed, added;
  for (const auto& [name, old] : before.tables) {
    const auto now = after.tables.find(name);
    if (now == after.tables.end()) {
      add(removed, plain(name) + " removed");
      continue;
    }
    const std::string was = dictionary_type_name(old.type_id, before.data_types);
    const std::string is = dictionary_type_name(now->second.type_id, after.data_types);
    if (was != is) add(changed, plain(name) + " retyped " + was + " -> " + is);
    if (old.location != now->second.location) {
      add(changed, plain(name) + " moved " + location_text(old.location) + " -> " +
                       location_text(now->second.location));
    }
  }
  for (const auto& [name, now] : after.tables) {
    if (before.tables.count(name) == 0) add(added, plain(name) + " added");
  }
  std::string changes = removed;
  if (!changed.empty()) add(changes, changed);
  if (!added.empty()) add(changes, added);
  for (const auto& [id, members] : before.struct_members) {
    // An array of structures shares its element's members: the structure says it.
    const auto type = before.data_types.find(id);
    if (type != before.data_types.end() && type->second.element_type != 0) continue;
    const auto now = after.struct_members.find(id);
    const std::string type_name = dictionary_type_name(id, before.data_types);
    const auto same = [](const data_type& a, const data_type& b) {
      return a.name == b.name && a.bounds == b.bounds &&
             a.member_offset_bytes == b.member_offset_bytes;
    };
    if (now == after.struct_members.end() ||
        dictionary_type_name(id, after.data_types) != type_name ||
        !std::equal(members.begin(), members.end(), now->second.begin(), now->second.end(), same)) {
      add(changes, "structure " + type_name + " changed");
    }
  }
  return changes;
}

}  // namespace panelhost
