// The trace lines of one exchange with the controller: a send that failed, a reply that
// did not come, an error reply, and with the wire trace every request and reply as hex.
// Called only while trace::on is set.
#pragma once

#include <cstddef>

namespace exchange_trace {

// result: what send returned; error: errno after it.
void sent(const unsigned char* bytes, std::size_t size, long result, int error);
// ready: what the wait for the reply returned; received: what recv returned (0 when it
// was not called); error: errno after both.
void received(const unsigned char* bytes, int ready, long received, int error);

}  // namespace exchange_trace
