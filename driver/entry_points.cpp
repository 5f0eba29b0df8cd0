// The 14 exported entry points: each forwards to the driver object or to the device
// named by the host's handle.
#include <cstddef>
#include <cstring>

#include "driver/description_tables.h"
#include "driver/device_context.h"
#include "driver/guarded_calls.h"
#include "driver/init_handshake.h"
#include "driver/tag_driver_offline_578.h"
#include "driver/trace_events.h"
#include "guard/guard.h"
#include "trace/trace.h"
#include "unitydrv/unitydrv.h"

namespace {
device_context* device_of(void** handle) {
  return handle != nullptr ? static_cast<device_context*>(*handle) : nullptr;
}

// The trace follows the environment of the process that loads the library, read once.
struct trace_setup {
  trace_setup() { trace::from_environment(); }
  ~trace_setup() { trace::configure(nullptr, false); }
} trace_at_load;

// So does guarded mode.
struct guard_setup {
  guard_setup() {
    if (guard::from_environment() && trace::on)
      trace::emit("guarded", "mode=on (UNITYDRV_GUARD=1)");
  }
} guard_at_load;

// Names the device of this call in the trace's lines.
void enter(const void* handle) {
  trace::current_device = trace_events::number_of(handle);
}
}  // namespace

void ORMAND_DRV_GetAttributeEx(unitydrv_attributes* attributes) {
  description::fill_attributes(attributes);
}

void ORMAND_DRV_GetDeviceTableEx(unitydrv_address_type* table, uint32_t* count) {
  *count = description::address_type_count;
  description::copy_address_types(table);
}

void ORMAND_DRV_GetCommandSizeLimitInfo(unitydrv_size_limit* limit, uint32_t* count) {
  description::fill_size_limit(limit);
  *count = 1;
}

int ORMAND_DRV_GetDataType(const unitydrv_type_query* query, uint32_t, uint32_t* host_type) {
  uint32_t type = 0;
  if (description::host_type_of(query->type_code, type)) *host_type = type;
  return 1;
}

void ORMAND_DRV_GetCommParam(uint32_t* value) {
  *value = comm_param;
}

void ORMAND_DRV_SetCommParam(uint32_t value) {
  comm_param = value;
}

void ORMAND_DRV_InitEx(uint32_t, const unitydrv_init_params* params) {
  plc_address = init_handshake::address_from_params(*params);
  if (trace::on) trace_events::init_ex(plc_address);
}

int ORMAND_DRV_StartDeviceEx(uint8_t offline_mode, void** handle, const char* path,
                             uint32_t offset) {
  try {
    driver_object.set_offline_status(offline_mode != 0);
    const int result = driver_object.start_device(offline_mode, handle, path, offset);
    if (trace::on) trace_events::started(handle, path, offset);
    return result;
  } catch (...) {
    if (guard::on) return guarded_calls::start_failed("StartDeviceEx");
    trace::exception_leaving("StartDeviceEx");
    throw;
  }
}

namespace {

unitydrv_result get_init_cmd(uint32_t* code, void** handle) {
  device_context* device = device_of(handle);
  if (trace::on) enter(device);
  if (device == nullptr) {
    if (code != nullptr) *code = 10;
    return unitydrv_result{};
  }
  try {
    return init_handshake::get_init_cmd(*device, code);
  } catch (...) {
    if (guard::on) return guarded_calls::init_failed(*device, code);
    trace::exception_leaving("GetInitCmdEx2");
    throw;
  }
}

unitydrv_result output_filter(_gui_request_* requests, int count) {
  if (trace::on) trace_events::round_begun(requests, count);
  try {
    return driver_object.outputfilter(requests, count);
  } catch (...) {
    if (guard::on) return guarded_calls::round_failed(requests, count);
    trace::exception_leaving("OutputFilterEx");
    throw;
  }
}

}  // namespace

#if defined(__arm__)
namespace {

// The bytes of a returned record that the driver sets: 2..7 after OutputFilterEx, the
// second word after GetInitCmdEx2. The others belong to the host.
constexpr std::size_t filter_bytes_from = offsetof(unitydrv_result, byte_2);
constexpr std::size_t init_bytes_from = offsetof(unitydrv_result, word_4);

// Where the record comes back through memory the caller owns, only the driver's bytes are
// written there.
void store_from(unitydrv_result* out, const unitydrv_result& record, std::size_t from) {
  std::memcpy(reinterpret_cast<unsigned char*>(out) + from,
              reinterpret_cast<const unsigned char*>(&record) + from, sizeof record - from);
}

}  // namespace

// 32-bit ARM (AAPCS) returns an 8-byte record in memory whose address the caller passes
// first, in r0. These definitions take that address as their first argument, the same
// call at the machine level, so that the host's bytes of the record stay as it set them.
extern "C" __attribute__((visibility("default"))) void returned_init_cmd(
    unitydrv_result* out, uint32_t* code, uint32_t, uint32_t, uint32_t,
    void** handle) __asm__("ORMAND_DRV_GetInitCmdEx2");
extern "C" __attribute__((visibility("default"))) void returned_output_filter(
    unitydrv_result* out, _gui_request_* requests, int count) __asm__("ORMAND_DRV_OutputFilterEx");

void returned_init_cmd(unitydrv_result* out, uint32_t* code, uint32_t, uint32_t, uint32_t,
                       void** handle) {
  store_from(out, get_init_cmd(code, handle), init_bytes_from);
}

void returned_output_filter(unitydrv_result* out, _gui_request_* requests, int count) {
  store_from(out, output_filter(requests, count), filter_bytes_from);
}
#else
// Elsewhere (x86-64) the record comes back in registers: there is no host memory to leave
// alone, and the host's bytes read as 0.
unitydrv_result ORMAND_DRV_GetInitCmdEx2(uint32_t* code, uint32_t, uint32_t, uint32_t,
                                         void** handle) {
  return get_init_cmd(code, handle);
}
#endif

int ORMAND_DRV_CheckInitCmdResponseEx2(uint32_t, uint32_t, void** handle) {
  device_context* device = device_of(handle);
  if (trace::on) enter(device);
  try {
    return device != nullptr ? init_handshake::check_init_cmd_response(*device) : 0;
  } catch (...) {
    if (guard::on && device != nullptr) return guarded_calls::check_failed(*device);
    trace::exception_leaving("CheckInitCmdResponseEx2");
    throw;
  }
}

#if !defined(__arm__)
unitydrv_result ORMAND_DRV_OutputFilterEx(_gui_request_* requests, int count) {
  return output_filter(requests, count);
}
#endif

void ORMAND_DRV_InputFilterEx(_input_data_* results, _frame_data_* frame, _system_info* infos,
                              int count) {
  if (trace::on) enter(infos != nullptr ? infos[0].device_handle : nullptr);
  try {
    driver_object.inputFilter(results, frame, infos, count);
  } catch (...) {
    if (guard::on) return guarded_calls::input_failed(results, infos, count);
    trace::exception_leaving("InputFilterEx");
    throw;
  }
}

void ORMAND_DRV_Timeout(uint32_t, void* handle) {
  if (trace::on) enter(handle);
  if (trace::on && handle != nullptr) trace::emit("timeout", "connection closed by the host");
  if (handle != nullptr) static_cast<device_context*>(handle)->session.stop();
}

void ORMAND_DRV_CloseDevice(uint32_t ignored, void* handle) {
  if (trace::on) enter(handle);
  if (trace::on && handle != nullptr) trace::emit("close", "device closed");
  driver_object.close_device(static_cast<unsigned char>(ignored), handle);
}
