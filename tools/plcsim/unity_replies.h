// Builders of the controller's Unity replies. Each takes the request's Unity
// message (pairing byte first) and returns the reply's Unity message.
#pragma once

#include <optional>

#include "tools/plcsim/error_reply.h"
#include "tools/plcsim/plcsim.h"
#include "tools/plcsim/sim_bytes.h"
#include "tools/plcsim/sim_memory.h"

namespace plcsim {

// Largest reply a client reads in one go: Modbus TCP header, function code and message.
constexpr std::size_t max_adu = 2048;
constexpr std::size_t max_message = max_adu - 8;
// Table address that marks the file-handle request (a read of the first variable).
constexpr uint32_t file_handle_marker = 0x054B8B7Eu;

byte_vector answer_identification(const project& p, const sim_memory& mem,
                                  const byte_vector& request);
byte_vector answer_dictionary(const project& p, const byte_vector& request);
byte_vector answer_read_variables(const project& p, const sim_memory& mem,
                                  const byte_vector& request);
byte_vector answer_write_variables(const project& p, sim_memory& mem, const byte_vector& request);

// A controller's checks of a Modbus TCP frame's header: a protocol id other than 0 is not
// Modbus, and the frame is dropped unanswered (an empty reply); a unit id other than 0 or
// 0xFF, which a controller that is no gateway does not serve, gets the Modbus exception
// 0x0A, gateway path unavailable (the function code with its top bit set, then 0x0A).
// Null when the header is right.
std::optional<byte_vector> refused_header(const byte_vector& frame);

// Dispatches on the Unity function code; unknown functions get status 0xFD.
byte_vector answer_unity(const project& p, sim_memory& mem, const byte_vector& request);

}  // namespace plcsim
