// The 14 exported entry points: each forwards to the driver object or to the device
// named by the host's handle.
#include "driver/description_tables.h"
#include "driver/device_context.h"
#include "driver/init_handshake.h"
#include "driver/tag_driver_offline_578.h"
#include "unitydrv/unitydrv.h"

namespace {
device_context* device_of(void** handle) {
  return handle != nullptr ? static_cast<device_context*>(*handle) : nullptr;
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
}

int ORMAND_DRV_StartDeviceEx(uint8_t offline_mode, void** handle, const char* path,
                             uint32_t offset) {
  driver_object.set_offline_status(offline_mode != 0);
  return driver_object.start_device(offline_mode, handle, path, offset);
}

unitydrv_result ORMAND_DRV_GetInitCmdEx2(uint32_t* code, uint32_t, uint32_t, uint32_t,
                                         void** handle) {
  device_context* device = device_of(handle);
  if (device == nullptr) {
    if (code != nullptr) *code = 10;
    return unitydrv_result{};
  }
  return init_handshake::get_init_cmd(*device, code);
}

int ORMAND_DRV_CheckInitCmdResponseEx2(uint32_t, uint32_t, void** handle) {
  device_context* device = device_of(handle);
  return device != nullptr ? init_handshake::check_init_cmd_response(*device) : 0;
}

unitydrv_result ORMAND_DRV_OutputFilterEx(_gui_request_* requests, int count) {
  return driver_object.outputfilter(requests, count);
}

void ORMAND_DRV_InputFilterEx(_input_data_* results, _frame_data_* frame, _system_info* infos,
                              int count) {
  driver_object.inputFilter(results, frame, infos, count);
}

void ORMAND_DRV_Timeout(uint32_t, void* handle) {
  if (handle != nullptr) static_cast<device_context*>(handle)->session.stop();
}

void ORMAND_DRV_CloseDevice(uint32_t ignored, void* handle) {
  driver_object.close_device(static_cast<unsigned char>(ignored), handle);
}
