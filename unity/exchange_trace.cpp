#include "unity/exchange_trace.h"

#include "trace/trace.h"
#include "wire/unity_constants.h"

namespace exchange_trace {
namespace {
// MBAP header (7), function code, pairing byte, then the Unity status.
constexpr std::size_t status_pos = 9;
constexpr std::size_t transaction_low_pos = 1;
constexpr unsigned char read_dictionary = 0x26;

// The Unity function of the last request sent, which an error reply refuses.
unsigned last_function = 0;
// What the Unity function of a request asks for.
const char* function_name(unsigned function) {
  switch (function) {
    case 0x01:
      return "initialise communication";
    case 0x02:
      return "read the controller's identification";
    case 0x03:
      return "read project information";
    case 0x04:
      return "read controller information";
    case 0x07:
      return "identification";
    case 0x20:
      return "read a memory block";
    case 0x22:
      return "read variables";
    case 0x23:
      return "write variables";
    case 0x26:
      return "read the data dictionary";
    default:
      return "a function this driver does not send";
  }
}

// An error reply: what it refused, of which call (trace::subject: the device and the
// request's tags), and what the status byte says; the code byte's meaning is the
// controller's own.
void error_reply(const unsigned char* bytes, std::size_t size) {
  const unsigned status = bytes[status_pos];
  trace::emit("error-reply", "status=0x%02X (%s) code=0x%02X function=0x%02X (%s) step=%u %s%s",
              status, status == wire::status_error ? "refused" : "not a Unity status",
              size > status_pos + 1 ? bytes[status_pos + 1] : 0, last_function,
              function_name(last_function), bytes[transaction_low_pos] | 0u, trace::subject,
              last_function == read_dictionary
                  ? " (a type without a detail record, such as a STRING, is refused so)"
                  : "");
}

}  // namespace

void sent(const unsigned char* bytes, std::size_t size, long result, int error) {
  if (trace::wire) trace::emit_bytes("send", bytes, size);
  last_function = size > status_pos ? bytes[status_pos] : 0;
  if (result == -1) {
    trace::emit("send-failed", "bytes=%zu error=\"%s\" (the exchange fails)", size,
                trace::os_reason(error));
  }
}

void received(const unsigned char* bytes, int ready, long received, int error) {
  if (ready == 0) {
    trace::emit("no-reply", "waited_ms=1000 (no reply within the second)");
  } else if (ready < 0 || received < 0) {
    trace::emit("no-reply", "error=\"%s\"", trace::os_reason(error));
  } else if (received == 0) {
    trace::emit("no-reply", "closed=1 (the controller closed the connection)");
  } else {
    const auto size = static_cast<std::size_t>(received);
    if (trace::wire) trace::emit_bytes("receive", bytes, size);
    if (size <= status_pos) {
      trace::emit("short-reply", "bytes=%zu (no Unity status)", size);
    } else if (bytes[status_pos] != wire::status_ok) {
      error_reply(bytes, size);
    }
  }
}

}  // namespace exchange_trace
