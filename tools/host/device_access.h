// The host tool's view of one device: its requests and results, and the reasons it
// gives when a device cannot be started or connected.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tools/common/host_device.h"
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

// StartDeviceEx; a tag file that cannot be read is reported here, since the driver only
// leaves the table empty.
std::unique_ptr<host_records::device> start_device(driver_api& api, const std::string& tag_file,
                                                   bool offline);
// InitEx, GetInitCmdEx2, CheckInitCmdResponseEx2; throws std::runtime_error with a one-line
// reason. An offline device connects to nothing.
void connect(host_records::device& device, const std::string& address);
// "controller unreachable at ADDR:PORT: " and why (refused, timed out, no route).
std::string unreachable_message(const std::string& address, uint16_t port);
// One OutputFilterEx / InputFilterEx round for all requests.
std::vector<host_result> read(host_records::device& device,
                              const std::vector<host_request>& requests);
// One write request; nothing tells the host whether the controller accepted it.
void write(host_records::device& device, const host_request& request, const write_data& data);

}  // namespace panelhost
