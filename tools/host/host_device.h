// One device driven through the entry points in the host's calling order, with the
// host's own records.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/common/driver_api.h"
#include "tools/host/value_parse.h"

namespace panelhost {

// What one host request asks for.
struct host_request {
  uint32_t tag_index = 0;
  uint8_t code = 0;          // PLC type code
  uint16_t array_index = 0;  // first element
  uint16_t count = 1;        // elements (characters of a STRING)
  int bit = -1;              // >= 0: read the bits from this bit number of the value
};

struct host_result {
  bool ok = false;
  std::vector<uint16_t> units;  // count elements' worth of result_words
};

// Units a request's result occupies.
std::size_t result_units(const host_request& request);

class host_device {
 public:
  // StartDeviceEx; a tag file that cannot be read is reported here, since the driver
  // only leaves the table empty.
  host_device(driver_api& api, const std::string& tag_file, bool offline);
  ~host_device();  // CloseDevice
  host_device(const host_device&) = delete;
  host_device& operator=(const host_device&) = delete;

  // InitEx, GetInitCmdEx2, CheckInitCmdResponseEx2; throws std::runtime_error with a
  // one-line reason. An offline device connects to nothing.
  void connect(const std::string& address);
  // One OutputFilterEx / InputFilterEx round for all requests.
  std::vector<host_result> read(const std::vector<host_request>& requests);
  // One write request; nothing tells the host whether the controller accepted it.
  void write(const host_request& request, const write_data& data);
  // Timeout: drops the connection.
  void drop();

 private:
  driver_api& api_;
  void* handle_ = nullptr;
};

}  // namespace panelhost
