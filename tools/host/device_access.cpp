#include "tools/host/device_access.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <vector>

#include "tools/host/plc_type.h"

namespace panelhost {

namespace {

constexpr uint16_t k_port = 502;  // the driver's fixed port, for messages

loaded_driver::request record_of(const host_request& request) {
  loaded_driver::request out;
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

std::unique_ptr<loaded_driver::device> start_device(driver_api& api, const std::string& tag_file,
                                                   bool offline) {
  if (!std::ifstream(tag_file, std::ios::binary)) {
    throw std::runtime_error("cannot read tag file " + tag_file + ": " + std::strerror(errno));
  }
  auto device = std::make_unique<loaded_driver::device>(api);
  device->start(tag_file, offline ? 1 : 0);
  return device;
}

std::string unreachable_message(const std::string& address, uint16_t port) {
  const std::string reason = connect_failure_reason(address, port);
  return "controller unreachable at " + address + ":" + std::to_string(port) + ": " +
         (reason.empty() ? "it accepts connections now, but did not when the driver tried"
                         : reason);
}

void connect(loaded_driver::device& device, const std::string& address) {
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

std::vector<host_result> read(loaded_driver::device& device,
                              const std::vector<host_request>& requests) {
  std::vector<host_result> results(requests.size());
  if (requests.empty()) return results;
  std::vector<loaded_driver::request> wanted;
  for (const host_request& r : requests) wanted.push_back(record_of(r));
  const loaded_driver::input_round round = device.read(wanted, nullptr, 0);
  for (std::size_t i = 0; i < requests.size(); ++i) {
    results[i].ok = round.results[i].result_status == 0;
    const std::size_t units = std::min<std::size_t>(result_units(requests[i]), 2048);
    results[i].units = round.units(i, units);
  }
  return results;
}

void write(loaded_driver::device& device, const host_request& request, const write_data& data) {
  if (data.words.size() > 2058) throw bad_value("value too long for one request");
  if (is_bit_type(request.code) || request.bit >= 0) {
    device.write_bit(record_of(request), data.bit_value);
  } else {
    device.write(record_of(request), data.words);
  }
}

namespace {

constexpr int k_connect_wait_ms = 100;  // the driver's own connect wait

std::string reason_of(int error, uint16_t port) {
  switch (error) {
    case 0:
      return "";
    case ECONNREFUSED:
      return "connection refused (nothing listens on port " + std::to_string(port) + ")";
    case ETIMEDOUT:
      return "timed out (no answer within " + std::to_string(k_connect_wait_ms) +
             " ms: the address is not on the network, or a firewall drops the connection)";
    case ENETUNREACH:
    case EHOSTUNREACH:
      return "no route to the controller's network (" + std::string(std::strerror(error)) + ")";
    default:
      return std::strerror(error);
  }
}

// The connection's outcome within the wait: 0, an errno value, or ETIMEDOUT.
int try_connect(int fd, const sockaddr_in& to) {
  if (connect(fd, reinterpret_cast<const sockaddr*>(&to), sizeof to) == 0) return 0;
  if (errno != EINPROGRESS) return errno;
  pollfd p{fd, POLLOUT, 0};
  const int ready = poll(&p, 1, k_connect_wait_ms);
  if (ready < 0) return errno;
  if (ready == 0) return ETIMEDOUT;
  int error = 0;
  socklen_t length = sizeof error;
  if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) != 0) return errno;
  return error;
}

}  // namespace

std::string connect_failure_reason(const std::string& address, uint16_t port) {
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(port);
  if (inet_pton(AF_INET, address.c_str(), &to.sin_addr) != 1) return "not an IPv4 address";
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) return std::strerror(errno);
  const int error = try_connect(fd, to);
  close(fd);
  return reason_of(error, port);
}

namespace {

// The library exports nothing but its entry points, so its version is read from the file
// the loader mapped: the what(1) string it carries.
std::string version_in_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  const std::vector<char> bytes{std::istreambuf_iterator<char>(in), {}};
  const std::string marker = "@(#)libunitydrv ";
  auto at = std::search(bytes.begin(), bytes.end(), marker.begin(), marker.end());
  if (at == bytes.end()) return "";
  at += static_cast<std::ptrdiff_t>(marker.size());
  return std::string(at, std::find(at, bytes.end(), '\0'));
}

}  // namespace

std::string loaded_library_version(const std::string& library) {
  void* handle = dlopen(library.c_str(), RTLD_LAZY | RTLD_LOCAL);
  if (handle == nullptr) return std::string("libunitydrv not loaded: ") + dlerror();
  Dl_info info{};
  void* entry = dlsym(handle, "ORMAND_DRV_GetAttributeEx");
  std::string path = entry != nullptr && dladdr(entry, &info) != 0 && info.dli_fname != nullptr
                         ? info.dli_fname
                         : library;
  dlclose(handle);
  const std::string version = version_in_file(path);
  return "libunitydrv " + (version.empty() ? std::string("(no version)") : version) + " (" + path +
         ")";
}

}  // namespace panelhost
