#include "driver/init_handshake.h"

#include <cerrno>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "driver/tag_driver_offline_578.h"
#include "driver/trace_events.h"
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
    if (trace::on) {
      resolution_report::trace_index(device.tag_table, s.tables, s.struct_members, s.data_types,
                                     failed, again);
    }
  };
  try {
    device.tag_table.setup_memory_index_in_place(s.tables, s.struct_members);
  } catch (const std::exception&) {
    report(true);
    return false;
  }
  report(false);
  return true;
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
  if (trace::on) trace_events::connecting(device, plc_address);
  device.plc_address = plc_address;
  if (trace::on) trace_events::handshake_begun(device);
  unity_process& session = device.session;
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
  trace_events::download_watch watch(session);
  session.get_data_type_list();
  session.get_data_type_detail();
  session.browse();
  if (trace::on) trace_events::downloaded(session, download_started, download_step);
  watch.finish();
  if (session.state == unity_process::state_ready) build_index(device, false);
  return finished(code, 0);
}

int check_init_cmd_response(device_context& device) {
  if (device.offline_mode != 0) return 1;
  if (device.session.state != unity_process::state_ready) return 0;
  return build_index(device, true) ? 1 : 0;
}

}  // namespace init_handshake
