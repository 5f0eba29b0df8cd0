// The controller's status bytes and its error reply, which every reply builder and the
// dispatch use.
#pragma once

#include <cstdint>

#include "tools/plcsim/sim_bytes.h"

namespace plcsim {

constexpr uint8_t status_ok = 0xFE;
constexpr uint8_t status_error = 0xFD;

// Pairing byte, status 0xFD and one error code byte.
byte_vector error_reply(const byte_vector& request, uint8_t code = 0);

}  // namespace plcsim
