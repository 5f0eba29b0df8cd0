// The driver's trace lines that need more than one call's figures: device numbers,
// the tag file, the connect and download of a handshake, and what a new download changed.
// Every function here is called only while trace::on is set.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "driver/device_context.h"
#include "unitydrv/unitydrv.h"

namespace trace_events {

// The short number that names a device in the trace (0 for null).
unsigned number_of(const void* handle);
void init_ex(const std::string& address);
void started(void** handle, const char* path, uint32_t offset);
// Milliseconds of a monotonic clock, for durations.
long now_ms();
// Before the connect: a reconnect names the device's earlier address and the device that
// last connected to the address it goes to now.
void connecting(const device_context& device, const std::string& address);
void connected(const device_context& device, bool ok, long since_ms, int error);
void identified(const unity_process& session, bool ok, uint16_t first_step);
void downloaded(const unity_process& session, long since_ms, uint16_t first_step);

// The run-time events: a bit write kept in memory, a tag number past the table, a reply
// too short for a request's values, the failure report of an input call. Cold: the
// request paths that call them stay as small (and as inlined) as without the trace.
[[gnu::cold]] void bit_kept(const offline_stTag_578& tag, const _gui_request_& request);
// The subject of the lines below a call (trace::subject): the device's address during a
// handshake; its address and the request's tags (the first few and a count) during a filter
// call, which the failure report of the next input call names again.
void handshake_begun(const device_context& device);
// The start of an OutputFilterEx call: names its device in the lines that follow and each
// request whose tag number lies past the table, then sets the call's subject.
[[gnu::cold]] void round_begun(const _gui_request_* requests, int count);
[[gnu::cold]] void failure_reported(int results);

// Keeps the variables of the earlier download aside while the session downloads again, so
// that the trace can tell which of them the new program no longer has or has moved. It
// puts them back afterwards as the session would have kept them (an entry of the new
// download wins over the earlier one of the same name): the session's maps end the same
// with the trace on or off. Inactive when the trace is off or nothing was downloaded.
class download_watch {
 public:
  explicit download_watch(unity_process& session);
  ~download_watch();
  download_watch(const download_watch&) = delete;
  download_watch& operator=(const download_watch&) = delete;
  // Says what changed and puts the earlier variables back; the destructor only puts back.
  void finish();

 private:
  void report() const;
  void restore();
  unity_process& session_;
  std::map<std::string, table> earlier_;
  bool active_ = false;
};

}  // namespace trace_events
