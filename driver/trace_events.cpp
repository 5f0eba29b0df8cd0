#include "driver/trace_events.h"

#include <cerrno>
#include <cstdio>
#include <ctime>

#include "guard/guard.h"
#include "trace/trace.h"
#include "wire/byte_cursor.h"

namespace trace_events {
namespace {

// The address each device connected to last, by device number: enough devices for any
// panel, kept without allocating.
constexpr unsigned remembered_devices = 64;
char last_address[remembered_devices][16];
// Each device's subject (slot 0 for devices numbered past the others).
char subjects[remembered_devices][400];
constexpr std::size_t tags_named = 4;

char* subject_of(unsigned device) {
  return subjects[device < remembered_devices ? device : 0];
}

std::string location_text(const std::vector<unsigned char>& location) {
  if (location.size() < 6) return "?";
  wire::le_reader in(location);
  const unsigned block = in.u16();
  const unsigned long offset = in.u32();
  char text[32];
  std::snprintf(text, sizeof text, "%u:%lu", block, offset);
  return text;
}

// A dictionary name without its terminating zero, escaped for a trace line.
trace::escaped shown(const std::string& name) {
  const std::size_t size = !name.empty() && name.back() == '\0' ? name.size() - 1 : name.size();
  return trace::escaped(std::string_view(name.data(), size));
}

// The device other than this one that last connected to address, or 0.
unsigned other_device_at(unsigned self, const std::string& address) {
  for (unsigned n = remembered_devices; n-- > 1;) {
    if (n != self && address == last_address[n]) return n;
  }
  return 0;
}

}  // namespace

unsigned number_of(const void* handle) {
  return handle != nullptr ? static_cast<const device_context*>(handle)->trace_number : 0;
}

void init_ex(const std::string& address) {
  trace::current_device = 0;  // not a device's call
  trace::emit("InitEx", "address=%s (used by the next GetInitCmdEx2 of any device)",
              address.c_str());
}

void started(void** handle, const char* path, uint32_t offset) {
  if (handle == nullptr || *handle == nullptr) return;
  const auto& device = *static_cast<const device_context*>(*handle);
  trace::current_device = device.trace_number;
  const offline_CTagTable_578& tags = device.tag_table;
  // The reason an empty table has is what the one open of the file saw.
  const int error = path == nullptr ? EINVAL : tags.open_error;
  const bool unread = tags.tag_count == 0 && error != 0;
  trace::emit(
      "StartDeviceEx", "tag_file=%s offset=%u tags=%u wide_names=%u offline=%u%s%s%s",
      trace::escaped(path != nullptr ? path : "(null)").c_str(), offset, tags.tag_count,
      tags.tag_count != 0 ? tags.wide_names : 0, device.offline_mode, unread ? " error=\"" : "",
      unread ? trace::os_reason(error) : "",
      unread ? "\" (the result is 0 all the same; every tag number reads as unresolved)" : "");
}

long now_ms() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

void connecting(const device_context& device, const std::string& address) {
  if (device.plc_address.empty()) return;
  const unsigned other = other_device_at(device.trace_number, address);
  char whose[96] = "";
  if (other != 0)
    std::snprintf(whose, sizeof whose, " (the address device %u connected to last)", other);
  trace::emit("reconnect", "address=%s previous=%s%s%s", address.c_str(),
              device.plc_address.c_str(),
              address != device.plc_address
                  ? " changed=1 (the address of the last InitEx, whichever device it was for)"
                  : "",
              whose);
}

void connected(const device_context& device, bool ok, long since_ms, int error) {
  trace::emit("connect", "address=%s:502 ms=%ld result=%s%s%s%s", device.plc_address.c_str(),
              now_ms() - since_ms, ok ? "ok" : "failed", ok ? "" : " error=\"",
              ok ? "" : trace::os_reason(error), ok ? "" : "\" (GetInitCmdEx2 code 10)");
  if (ok && device.trace_number < remembered_devices) {
    std::snprintf(last_address[device.trace_number], sizeof last_address[0], "%s",
                  device.plc_address.c_str());
  }
}

void identified(const unity_process& session, bool ok, uint16_t first_step) {
  trace::emit("identification", "result=%s plc_type=\"%s\" m580=%d exchanges=%u%s",
              ok ? "ok" : "failed", trace::escaped(session.plc_type, true).c_str(),
              session.is_bme_p58() ? 1 : 0,
              static_cast<unsigned>(session.transaction_counter - first_step),
              ok ? "" : " (no dictionary, no index: CheckInitCmdResponseEx2 returns 0)");
}

void downloaded(const unity_process& session, long since_ms, uint16_t first_step) {
  unsigned arrays = 0;
  for (const auto& entry : session.data_types) {
    if (entry.second.element_type != 0 && !entry.second.bounds.empty()) ++arrays;
  }
  trace::emit(
      "dictionary",
      "types=%zu structures=%zu arrays=%u variables=%zu exchanges=%u ms=%ld state=%d%s",
      session.data_types.size(), session.struct_members.size(), arrays, session.tables.size(),
      static_cast<unsigned>(session.transaction_counter - first_step), now_ms() - since_ms,
      session.state, session.state == unity_process::state_ready ? "" : " (incomplete: no index)");
}

void bit_kept(const offline_stTag_578& tag, const _gui_request_& request) {
  trace::emit("bit-write",
              "tag=%u bit=%d value=%d kept in the driver's memory, not sent (write the whole "
              "word to change the controller)",
              tag.request_index, tag.bit_number, request.write.bit.write_bit_value != 0);
}

void handshake_begun(const device_context& device) {
  char* text = subject_of(device.trace_number);
  std::snprintf(text, sizeof subjects[0], "address=%.100s during=handshake",
                trace::escaped(device.plc_address).c_str());
  trace::subject = text;
}

void round_begun(const _gui_request_* requests, int count) {
  const bool named = requests != nullptr && count > 0 && requests[0].device_handle != nullptr;
  trace::current_device = named ? number_of(requests[0].device_handle) : 0;
  if (!named) return;
  const auto& device = *static_cast<const device_context*>(requests[0].device_handle);
  const offline_CTagTable_578& table = device.tag_table;
  // A write carries out its first request only.
  const bool write = requests[0].request_kind == 1 || requests[0].request_kind == 2;
  const std::size_t used = write ? 1 : static_cast<std::size_t>(count);
  for (std::size_t i = 0; i < used; ++i) {
    if (requests[i].ref.tag_index < table.tag_count) continue;
    trace::emit("tag-past-table",
                "request=%zu tag=%u tags=%u (read as a tag that resolved to nothing)", i,
                requests[i].ref.tag_index, table.tag_count);
  }
  char* text = subject_of(device.trace_number);
  std::size_t n = static_cast<std::size_t>(std::snprintf(
      text, sizeof subjects[0], "address=%.100s %s=", trace::escaped(device.plc_address).c_str(),
      write ? "write" : "read"));
  for (std::size_t i = 0; i < used && i < tags_named && n < sizeof subjects[0]; ++i) {
    const uint32_t tag = requests[i].ref.tag_index;
    const char* name = tag < table.tag_count ? table.entries[tag].name : "(past the table)";
    n += static_cast<std::size_t>(std::snprintf(text + n, sizeof subjects[0] - n, "%s%s",
                                                i == 0 ? "" : ",", trace::escaped(name).c_str()));
  }
  if (n < sizeof subjects[0])
    std::snprintf(text + n, sizeof subjects[0] - n, "%s requests=%zu",
                  used > tags_named ? ",..." : "", used);
  trace::subject = text;
}

void failure_reported(int results) {
  trace::emit("failure-report",
              "results=%d status=2 code=10 %s (the last exchange failed; reported once, the "
              "next round tries again)",
              results, subject_of(trace::current_device));
}

download_watch::download_watch(unity_process& session) : session_(session) {
  if (!trace::on || session.tables.empty()) return;
  earlier_.swap(session.tables);
  active_ = true;
}

download_watch::~download_watch() {
  restore();
}

void download_watch::restore() {
  if (!active_) return;
  active_ = false;
  // merge keeps an entry of the new download (the earlier one is only added back) and
  // moves the nodes without allocating: putting them back cannot fail. Guarded mode keeps
  // the new download alone.
  if (!guard::on) session_.tables.merge(earlier_);
  earlier_.clear();
}

void download_watch::finish() {
  if (!active_) return;
  try {
    report();
  } catch (...) {
    trace::emit("program-change", "(the comparison with the earlier download could not finish)");
  }
  restore();
}

void download_watch::report() const {
  unsigned gone = 0, moved = 0;
  for (const auto& [name, variable] : earlier_) {
    const auto now = session_.tables.find(name);
    if (now == session_.tables.end()) {
      ++gone;
      trace::emit("program-change", "variable=%s gone=1 old=%s %s", shown(name).c_str(),
                  location_text(variable.location).c_str(),
                  guard::on ? "(guarded: its tags are refused)"
                            : "(its tags keep the earlier address until the device is closed "
                              "and started again)");
    } else if (now->second.location != variable.location ||
               now->second.type_id != variable.type_id) {
      ++moved;
      trace::emit("program-change",
                  "variable=%s moved=1 old=%s new=%s old_type=%u new_type=%u "
                  "(its tags take the new address)",
                  shown(name).c_str(), location_text(variable.location).c_str(),
                  location_text(now->second.location).c_str(), variable.type_id,
                  now->second.type_id);
    }
  }
  if (gone + moved != 0) {
    trace::emit("program-change",
                "gone=%u moved=%u the dictionary is kept and only added to: tags "
                "of gone variables read their old address with status 0; CloseDevice and "
                "StartDeviceEx again after a program download",
                gone, moved);
  }
}

}  // namespace trace_events
