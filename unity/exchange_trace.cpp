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
      trace::emit("error-reply", "status=0x%02X code=0x%02X function=0x%02X step=%u%s",
                  bytes[status_pos], size > status_pos + 1 ? bytes[status_pos + 1] : 0,
                  last_function, bytes[transaction_low_pos] | 0u,
                  last_function == read_dictionary
                      ? " (a type without a detail record, such as a STRING, is refused so)"
                      : "");
    }
  }
}

}  // namespace exchange_trace
