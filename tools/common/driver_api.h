// The driver's 14 entry points, resolved by name from a loaded libunitydrv.so, and the
// InitEx record: the one way the host tool, the tests and the benchmarks load the driver.
#pragma once

#include <string>

#include "unitydrv/unitydrv.h"

namespace loaded_driver {

class driver_api {
 public:
  // dlopen + dlsym of every entry point; throws std::runtime_error naming what is missing.
  explicit driver_api(const std::string& library_path);
  ~driver_api();
  driver_api(const driver_api&) = delete;
  driver_api& operator=(const driver_api&) = delete;

  decltype(&ORMAND_DRV_GetAttributeEx) GetAttributeEx;
  decltype(&ORMAND_DRV_GetDeviceTableEx) GetDeviceTableEx;
  decltype(&ORMAND_DRV_GetCommandSizeLimitInfo) GetCommandSizeLimitInfo;
  decltype(&ORMAND_DRV_GetDataType) GetDataType;
  decltype(&ORMAND_DRV_GetCommParam) GetCommParam;
  decltype(&ORMAND_DRV_SetCommParam) SetCommParam;
  decltype(&ORMAND_DRV_InitEx) InitEx;
  decltype(&ORMAND_DRV_StartDeviceEx) StartDeviceEx;
  decltype(&ORMAND_DRV_GetInitCmdEx2) GetInitCmdEx2;
  decltype(&ORMAND_DRV_CheckInitCmdResponseEx2) CheckInitCmdResponseEx2;
  decltype(&ORMAND_DRV_OutputFilterEx) OutputFilterEx;
  decltype(&ORMAND_DRV_InputFilterEx) InputFilterEx;
  decltype(&ORMAND_DRV_Timeout) Timeout;
  decltype(&ORMAND_DRV_CloseDevice) CloseDevice;

 private:
  void* library_;
};

// Parses a dotted IPv4 address into InitEx's record; throws std::invalid_argument.
unitydrv_init_params init_params_of(const std::string& address);
// The same check alone, before anything connects.
void check_ipv4_address(const std::string& address);

}  // namespace loaded_driver
