// The library's globals and the device lifecycle.
#include <new>

#include "driver/device_context.h"
#include "driver/tag_driver_offline_578.h"

// Defined together so that they are built in this order when the library loads.
tag_driver_offline_578 driver_object;
std::string plc_address;
uint32_t comm_param = 0;

int tag_driver_offline_578::start_device(unsigned char offline_mode, void** handle,
                                         const char* path, unsigned int offset) {
  static unsigned devices_started = 0;
  auto* device = new device_context();
  device->trace_number = ++devices_started;
  // The host holds the handle even when the file cannot be read.
  if (handle != nullptr) *handle = device;
  int result = path != nullptr ? device->tag_table.Read(path, offset) : 0;
  device->offline_mode = offline_mode;
  return result;
}

void tag_driver_offline_578::close_device(unsigned char, void* handle) {
  delete static_cast<device_context*>(handle);
}
