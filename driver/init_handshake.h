// Connecting a device, downloading the dictionary and resolving its tags.
#pragma once

#include <cstdint>

#include "driver/device_context.h"
#include "unitydrv/unitydrv.h"

namespace init_handshake {

// The dotted address text a.b.c.d of the host's parameter record.
std::string address_from_params(const unitydrv_init_params& params);
// Connects and loads the dictionary; *code is 10 when no connection was made.
unitydrv_result get_init_cmd(device_context& device, uint32_t* code);
// 1 when the index was built (or the device is offline), 0 otherwise.
int check_init_cmd_response(device_context& device);

}  // namespace init_handshake
