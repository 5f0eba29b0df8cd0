// Guarded mode's ends of the entry points: what an exception raised inside a call becomes
// instead of leaving it. Each is called inside the entry point's catch block, and only
// while guard::on is set.
#pragma once

#include <cstdint>

#include "driver/device_context.h"
#include "unitydrv/unitydrv.h"

namespace guarded_calls {

// StartDeviceEx: 0, the handle as it stands.
int start_failed(const char* entry_point);
// GetInitCmdEx2: code 10, the device not ready and its connection closed, so that the
// next GetInitCmdEx2 starts afresh.
unitydrv_result init_failed(device_context& device, uint32_t* code);
// OutputFilterEx: every position of the round fails on the next InputFilterEx.
unitydrv_result round_failed(_gui_request_* requests, int count);
// CheckInitCmdResponseEx2: 0, the device not ready.
int check_failed(device_context& device);
// InputFilterEx: every position fails.
void input_failed(_input_data_* results, _system_info* infos, int count);

}  // namespace guarded_calls
