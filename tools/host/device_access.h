// The host tool's view of one device: its requests and results, and the reasons it
// gives when a device cannot be started or connected.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tools/common/host_device.h"
#include "tools/host/value_format.h"

namespace panelhost {

// The driver as panelhost loads it.
using loaded_driver::check_ipv4_address;
using loaded_driver::driver_api;
using loaded_driver::init_params_of;

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
std::unique_ptr<loaded_driver::device> start_device(driver_api& api, const std::string& tag_file,
                                                    bool offline);
// InitEx, GetInitCmdEx2, CheckInitCmdResponseEx2; throws std::runtime_error with a one-line
// reason. An offline device connects to nothing.
void connect(loaded_driver::device& device, const std::string& address);
// "controller unreachable at ADDR:PORT: " and why (refused, timed out, no route).
std::string unreachable_message(const std::string& address, uint16_t port);
// One OutputFilterEx / InputFilterEx round for all requests.
std::vector<host_result> read(loaded_driver::device& device,
                              const std::vector<host_request>& requests);
// One write request; nothing tells the host whether the controller accepted it.
void write(loaded_driver::device& device, const host_request& request, const write_data& data);

// Why a controller cannot be reached: the driver reports only that it could not connect.
// Tries one TCP connection to address:port, waiting as long as the driver does (100 ms),
// and says why it fails: "connection refused (nothing listens on port 502)", "timed out
// ...", "no route to ..."; "" when it succeeds now.
std::string connect_failure_reason(const std::string& address, uint16_t port);

// The release of the driver a library path loads, as panelhost --version reports it.
// "libunitydrv 0.2.0 (/usr/lib/x86_64-linux-gnu/libunitydrv.so.0)": the file the loader
// chose for `library` and the version text that file carries; a line saying why not when
// the library does not load or carries no version.
std::string loaded_library_version(const std::string& library);

}  // namespace panelhost
