#include "tools/host/dictionary.h"

#include <stdexcept>

#include "tools/host/connect_probe.h"
#include "tools/host/device_access.h"
#include "unity/unity_process.h"

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

}  // namespace panelhost
