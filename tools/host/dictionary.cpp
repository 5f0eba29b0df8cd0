#include "tools/host/dictionary.h"

#include <algorithm>
#include <cctype>
#include <iomanip>
#include <sstream>
#include <stdexcept>

#include "tools/host/device_access.h"
#include "tools/host/dictionary_shape.h"
#include "tools/plcsim/plcsim.h"
#include "unity/unity_process.h"
#include "wire/byte_cursor.h"

namespace panelhost {

namespace {

void report(std::ostream& progress, const char* stage, unsigned pages, std::size_t items,
            const char* what) {
  progress << "  " << stage << ": " << items << ' ' << what << " in " << pages << " request"
           << (pages == 1 ? "" : "s") << '\n';
}

}  // namespace

dictionary download_dictionary(const std::string& address, std::ostream& progress, uint16_t port) {
  check_ipv4_address(address);
  const std::string where = address + ":" + std::to_string(port);
  unity_process session;
  progress << "connecting to " << where << '\n';
  if (session.setup_device(address.c_str(), port, 100) == 0) {
    throw std::runtime_error(unreachable_message(address, port));
  }
  if (!session.initial_device()) {
    throw std::runtime_error("initialisation incomplete: " + where + " did not identify itself");
  }
  progress << "  identified: " << session.plc_type << '\n';
  // Every reply page advances the request counter, which gives the page counts.
  uint16_t mark = session.transaction_counter;
  session.get_data_type_list();
  report(progress, "data types", static_cast<uint16_t>(session.transaction_counter - mark),
         session.data_types.size(), "types");
  mark = session.transaction_counter;
  session.get_data_type_detail();
  // An array of structures shares its element's member list: count it apart.
  std::size_t arrays = 0;
  for (const auto& entry : session.struct_members) {
    const auto type = session.data_types.find(entry.first);
    arrays += type != session.data_types.end() && type->second.element_type != 0 ? 1 : 0;
  }
  report(progress, "type details", static_cast<uint16_t>(session.transaction_counter - mark),
         session.struct_members.size() - arrays,
         ("structures, " + std::to_string(arrays) + " arrays of structures").c_str());
  mark = session.transaction_counter;
  const bool browsed = session.browse();
  report(progress, "variables", static_cast<uint16_t>(session.transaction_counter - mark),
         session.tables.size(), "variables");
  if (!browsed || session.state != unity_process::state_ready) {
    throw std::runtime_error("initialisation incomplete: dictionary download from " + where +
                             " failed");
  }
  dictionary dict{session.plc_type, session.data_types, session.struct_members, session.tables};
  session.stop();
  return dict;
}

dictionary project_dictionary(const std::string& project_path, std::ostream& progress) {
  plcsim::server sim(plcsim::load_project_file(project_path));
  if (!sim.start("127.0.0.1", 0)) {
    throw std::runtime_error("cannot serve project " + project_path + " on a loopback port");
  }
  progress << "types from project " << project_path << '\n';
  return download_dictionary(sim.address(), progress, sim.port());
}

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

namespace {

std::size_t edit_distance(const std::string& a, const std::string& b) {
  std::vector<std::size_t> row(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t above = row[j];
      const bool same = std::tolower(static_cast<unsigned char>(a[i - 1])) ==
                        std::tolower(static_cast<unsigned char>(b[j - 1]));
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (same ? 0 : 1)});
      diagonal = above;
    }
  }
  return row[b.size()];
}

}  // namespace

std::string nearest_name(const std::string& name, const std::vector<std::string>& candidates) {
  const std::size_t limit = std::max<std::size_t>(2, name.size() / 3);
  std::string best;
  std::size_t best_distance = limit + 1;
  for (const std::string& c : candidates) {
    // Lengths that differ by more than the limit cannot be close enough.
    const std::size_t gap =
        c.size() > name.size() ? c.size() - name.size() : name.size() - c.size();
    if (gap >= best_distance) continue;
    const std::size_t d = edit_distance(name, c);
    if (d < best_distance) {
      best_distance = d;
      best = c;
    }
  }
  return best;
}

std::string suggestion(const std::string& name, const std::vector<std::string>& candidates) {
  const std::string best = nearest_name(name, candidates);
  return best.empty() ? "" : " (did you mean '" + best + "'?)";
}

}  // namespace panelhost
