// The opt-in driver trace: one line per event, for the engineer who needs to see why a
// tag reads what it reads. UNITYDRV_TRACE (stderr, syslog or a file path) and
// UNITYDRV_TRACE_WIRE=1 are read once when the library loads. Off, an emit site costs
// one test of a global flag: write each as
//   if (trace::on) trace::emit("event", "key=%d", value);
// so that nothing is evaluated, formatted or allocated unless the trace is on.
#pragma once

#include <cstddef>
#include <string_view>

namespace trace {

// Both constant-initialised, so that an emit site in another library object's static
// initialisation reads false, never garbage.
extern bool on;
extern bool wire;  // every request and reply as hex as well
// The short number of the device whose entry point is running (0: none); set by the entry
// points only while the trace is on.
extern unsigned current_device;
// What the driver's call in progress is about (the device's address, the tags of the host's
// request), for the lines of the layers below, which see only bytes; set by the driver while
// the trace is on, never null.
extern const char* subject;

// One line: time, device, event, then the printf-formatted figures.
[[gnu::cold]] void emit(const char* event, const char* format, ...)
    __attribute__((format(printf, 2, 3)));
// One line of bytes as hex (longer runs are cut, saying how many bytes there were).
[[gnu::cold]] void emit_bytes(const char* event, const unsigned char* bytes, std::size_t size);
// Names the exception being handled (call inside a catch block), leaving it unchanged.
[[gnu::cold]] void exception_leaving(const char* entry_point);
// The system's text for an errno value, without allocating.
const char* os_reason(int error);

// A name as a trace line shows it: a control character, a quote, a backslash, a byte above
// 0x7E and (unless quoted: the text goes between quotes) a space become \xNN, so that one
// event stays one line of key=value fields whatever a tag file or a controller put in a
// name. Longer texts are cut ("...").
class escaped {
 public:
  explicit escaped(std::string_view text, bool quoted = false);
  const char* c_str() const { return text_; }

 private:
  char text_[512];
};

// Points the trace at a target: "stderr", "syslog" or a file path (appended); null or
// empty turns it off. A file that cannot be opened is said once on stderr and leaves the
// trace off. Returns whether the trace is on. The shared library calls it once when it is
// loaded (from the environment, see from_environment) and with null when it is unloaded;
// tests call it to trace in-process.
bool configure(const char* target, bool with_wire);
// configure from UNITYDRV_TRACE and UNITYDRV_TRACE_WIRE.
bool from_environment();

}  // namespace trace
