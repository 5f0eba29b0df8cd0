// One device of the loaded driver, driven through the entry points in the host's calling
// order with the host's own records: the host tool, the tests and the benchmarks share it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/common/host_records.h"

namespace loaded_driver {

class device {
 public:
  explicit device(loaded_driver::driver_api& api) : api_(api) {}
  ~device() { close(); }
  device(const device&) = delete;
  device& operator=(const device&) = delete;

  // StartDeviceEx: its result.
  int start(const std::string& tag_path, uint8_t offline, uint32_t offset = 0);
  // GetInitCmdEx2: the code it reports (0 ready to check, 10 unreachable); result, when
  // given, receives the call's own result.
  uint32_t get_init(unitydrv_result* result = nullptr);
  // CheckInitCmdResponseEx2: 1 when the device is ready.
  int check_init();
  // One OutputFilterEx / InputFilterEx round; output, when given, receives OutputFilterEx's
  // result. The results start filled with fill, so that untouched bytes show.
  input_round read(const std::vector<request>& wanted, unitydrv_result* output = nullptr,
                   uint8_t fill = 0xAA);
  // One write of whole values, one unit per entry of words.
  unitydrv_result write(const request& one, const std::vector<uint16_t>& words,
                        uint8_t bit_value = 0);
  // A bit type's or an addressed bit's write: the value goes into the first word as well,
  // since an offline device takes whole values from the words, a bit type's too.
  unitydrv_result write_bit(const request& one, uint8_t value);
  // Timeout: drops the connection.
  void drop();
  // CloseDevice, once.
  void close();

  void*& handle() { return handle_; }
  loaded_driver::driver_api& api() { return api_; }

 private:
  loaded_driver::driver_api& api_;
  void* handle_ = nullptr;
  bool started_ = false;
};

}  // namespace loaded_driver
