#include "tools/host/device_access.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>

#include "tools/host/connect_probe.h"
#include "tools/host/plc_type.h"

namespace panelhost {

namespace {

constexpr uint16_t k_port = 502;  // the driver's fixed port, for messages

host_records::request record_of(const host_request& request) {
  host_records::request out;
  out.tag = request.tag_index;
  out.type = request.code;
  out.array_index = request.array_index;
  out.count = request.count;
  if (request.bit >= 0) out.bit_spec = static_cast<uint8_t>(request.bit + 1);
  return out;
}

}  // namespace

std::size_t result_units(const host_request& request) {
  if (request.bit >= 0) return request.count;
  const plc_type* type = wire::find_plc_type(request.code);
  return static_cast<std::size_t>(request.count) * (type ? type->units : 0);
}

std::unique_ptr<host_records::device> start_device(driver_api& api, const std::string& tag_file,
                                                   bool offline) {
  if (!std::ifstream(tag_file, std::ios::binary)) {
    throw std::runtime_error("cannot read tag file " + tag_file + ": " + std::strerror(errno));
  }
  auto device = std::make_unique<host_records::device>(api);
  device->start(tag_file, offline ? 1 : 0);
  return device;
}

std::string unreachable_message(const std::string& address, uint16_t port) {
  const std::string reason = connect_failure_reason(address, port);
  return "controller unreachable at " + address + ":" + std::to_string(port) + ": " +
         (reason.empty() ? "it accepts connections now, but did not when the driver tried"
                         : reason);
}

void connect(host_records::device& device, const std::string& address) {
  const unitydrv_init_params params = init_params_of(address);
  device.api().InitEx(0, &params);
  if (device.get_init() == 10) {
    throw std::runtime_error(unreachable_message(address, k_port));
  }
  if (device.check_init() == 0) {
    throw std::runtime_error("initialisation incomplete: no data dictionary from " + address + ":" +
                             std::to_string(k_port));
  }
}

std::vector<host_result> read(host_records::device& device,
                              const std::vector<host_request>& requests) {
  std::vector<host_result> results(requests.size());
  if (requests.empty()) return results;
  std::vector<host_records::request> wanted;
  for (const host_request& r : requests) wanted.push_back(record_of(r));
  const host_records::input_round round = device.read(wanted, nullptr, 0);
  for (std::size_t i = 0; i < requests.size(); ++i) {
    results[i].ok = round.results[i].result_status == 0;
    const std::size_t units = std::min<std::size_t>(result_units(requests[i]), 2048);
    results[i].units = round.units(i, units);
  }
  return results;
}

void write(host_records::device& device, const host_request& request, const write_data& data) {
  if (data.words.size() > 2058) throw bad_value("value too long for one request");
  if (is_bit_type(request.code) || request.bit >= 0) {
    device.write_bit(record_of(request), data.bit_value);
  } else {
    device.write(record_of(request), data.words);
  }
}

}  // namespace panelhost
