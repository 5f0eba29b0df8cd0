#include "driver/init_handshake.h"

#include <cerrno>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "driver/tag_driver_offline_578.h"
#include "driver/trace_events.h"
#include "guard/guard.h"
#include "tag_index/guarded_index.h"
#include "tag_index/resolution_report.h"
#include "trace/trace.h"

namespace init_handshake {
namespace {

constexpr unsigned short plc_port = 502;
constexpr int connect_timeout_ms = 100;
constexpr uint32_t code_no_connection = 10;

// Builds the tag index from the session's maps. The index builder only reads them, so it
// works on them in place: what copies would give, without copying the whole dictionary.
// A dictionary that the index cannot digest leaves the device not ready instead of
// throwing into the host.
// again: the same dictionary as the last build (the trace then gives the counts only).
bool build_index(device_context& device, bool again) {
  const unity_process& s = device.session;
  const auto report = [&](bool failed) {
    resolution_report::trace_index(device.tag_table, s.tables, s.struct_members, s.data_types,
                                   failed, again);
  };
  if (guard::on) ++device.guarded.generation;  // the verdicts of earlier reads no longer stand
  try {
    device.tag_table.setup_memory_index_in_place(s.tables, s.struct_members);
    if (guard::on) guarded_index::judge(device.tag_table, s.tables, s.struct_members, s.data_types);
  } catch (const std::exception&) {
    report(true);
    return false;
  }
  report(false);
  return true;
}

// Guarded: a device keeps the address of its first GetInitCmdEx2 (the InitEx before it),
// whatever InitEx said since for another device, also when that first connect failed.
const std::string& address_for(const device_context& device) {
  if (!guard::on || device.guarded.address.empty()) return plc_address;
  if (trace::on && device.guarded.address != plc_address) {
    trace::emit("guarded",
                "address=%s last_initex=%s (the device keeps the address it was "
                "first connected to)",
                device.guarded.address.c_str(), plc_address.c_str());
  }
  return device.guarded.address;
}

// Guarded: the new download replaces the dictionary instead of adding to it, so that the
// tags of a variable the new program no longer has are refused. The variables table is
// emptied after the trace's watch has taken the earlier one aside.
void forget_types(unity_process& session) {
  session.data_types.clear();
  session.struct_members.clear();
}

unitydrv_result finished(uint32_t* code, uint32_t value) {
  if (code != nullptr) *code = value;
  return unitydrv_result{};
}

}  // namespace

std::string address_from_params(const unitydrv_init_params& params) {
  std::ostringstream text;
  text << static_cast<int>(params.octet1) << '.' << static_cast<int>(params.octet2) << '.'
       << static_cast<int>(params.octet3) << '.' << static_cast<int>(params.octet4);
  return text.str();
}

unitydrv_result get_init_cmd(device_context& device, uint32_t* code) {
  if (device.offline_mode != 0) return finished(code, 0);
  if (guard::on) device.guarded.ready = false;
  const std::string& address = address_for(device);
  if (trace::on) trace_events::connecting(device, address);
  device.plc_address = address;
  if (guard::on && device.guarded.address.empty()) device.guarded.address = address;
  if (trace::on) trace_events::handshake_begun(device);
  unity_process& session = device.session;
  // Guarded: a new handshake starts on a new connection with requests numbered from 1,
  // whatever the host did before, so that no earlier exchange's bytes reach it.
  if (guard::on) session.stop();
  const long started = trace::on ? trace_events::now_ms() : 0;
  const uint16_t first_step = session.transaction_counter;
  if (session.setup_device(device.plc_address.c_str(), plc_port, connect_timeout_ms) == 0) {
    if (trace::on) trace_events::connected(device, false, started, errno);
    return finished(code, code_no_connection);
  }
  if (trace::on) trace_events::connected(device, true, started, 0);
  const bool identified = session.initial_device();
  if (trace::on) trace_events::identified(session, identified, first_step);
  if (!identified) return finished(code, 0);
  const long download_started = trace::on ? trace_events::now_ms() : 0;
  const uint16_t download_step = session.transaction_counter;
  if (guard::on) forget_types(session);
  trace_events::download_watch watch(session);
  if (guard::on) session.tables.clear();
  session.get_data_type_list();
  session.get_data_type_detail();
  session.browse();
  if (trace::on) trace_events::downloaded(session, download_started, download_step);
  watch.finish();
  if (session.state == unity_process::state_ready) {
    const bool built = build_index(device, false);
    if (guard::on) device.guarded.ready = built;
  }
  return finished(code, 0);
}

int check_init_cmd_response(device_context& device) {
  if (device.offline_mode != 0) return 1;
  if (device.session.state != unity_process::state_ready) return 0;
  const bool built = build_index(device, true);
  if (guard::on) device.guarded.ready = built;
  return built ? 1 : 0;
}

}  // namespace init_handshake
