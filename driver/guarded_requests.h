// Guarded mode's checks on host requests (guard::on): which request positions of a read
// are refused and why, the round that fails whole, and the two writes that guarded mode
// carries out differently (a bit inside a word, the 1-byte types).
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "driver/device_context.h"
#include "unitydrv/unitydrv.h"

namespace guarded_requests {

// A read reply holds 2,048 bytes: 10 of header and status, the rest values.
constexpr std::size_t max_value_bytes = 2038;

// Why a read request position is refused (a guard::reason), 0 when it is served. tag is
// the working tag filled from the request; n its element count; last: no position follows.
uint8_t position_refusal(const device_context& device, const tag_ref& ref,
                         const offline_stTag_578& tag, uint16_t n, bool last);

// Why the whole read of count requests fails before any is looked at, or 0.
uint8_t round_refusal(const device_context& device, int count);

// Records a refusal of every position of the round (the trace says why).
void refuse_round(device_context& device, uint8_t why, int count);

// The trace line of one refused position.
[[gnu::cold]] void trace_refused(int position, uint32_t tag_index, const char* name, uint8_t why);

// The word of a bit write, its bit set or cleared: width bytes (1, 2 or 4) of value.
uint32_t with_bit(uint32_t value, unsigned bit, bool set);

// The value bytes of a write of a 1-byte type (SINT, BYTE, USINT): one per element.
std::vector<unsigned char> one_byte_image(const _gui_request_& request);

}  // namespace guarded_requests
