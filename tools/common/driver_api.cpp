#include "tools/common/driver_api.h"

#include <arpa/inet.h>
#include <dlfcn.h>

#include <algorithm>
#include <cstdio>
#include <stdexcept>

namespace loaded_driver {

namespace {

template <typename F>
void resolve(void* library, const char* name, F& fn) {
  void* symbol = dlsym(library, name);
  if (symbol == nullptr) throw std::runtime_error(std::string("driver has no entry point ") + name);
  fn = reinterpret_cast<F>(symbol);
}

}  // namespace

#define PANELHOST_RESOLVE(op) resolve(library_, "ORMAND_DRV_" #op, op)

driver_api::driver_api(const std::string& library_path)
    : library_(dlopen(library_path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
  if (library_ == nullptr)
    throw std::runtime_error(std::string("cannot load driver: ") + dlerror());
  try {
    PANELHOST_RESOLVE(GetAttributeEx);
    PANELHOST_RESOLVE(GetDeviceTableEx);
    PANELHOST_RESOLVE(GetCommandSizeLimitInfo);
    PANELHOST_RESOLVE(GetDataType);
    PANELHOST_RESOLVE(GetCommParam);
    PANELHOST_RESOLVE(SetCommParam);
    PANELHOST_RESOLVE(InitEx);
    PANELHOST_RESOLVE(StartDeviceEx);
    PANELHOST_RESOLVE(GetInitCmdEx2);
    PANELHOST_RESOLVE(CheckInitCmdResponseEx2);
    PANELHOST_RESOLVE(OutputFilterEx);
    PANELHOST_RESOLVE(InputFilterEx);
    PANELHOST_RESOLVE(Timeout);
    PANELHOST_RESOLVE(CloseDevice);
  } catch (...) {
    dlclose(library_);
    throw;
  }
}

#undef PANELHOST_RESOLVE

driver_api::~driver_api() {
  dlclose(library_);
}

namespace {

const char* const k_ipv4_form =
    " (four numbers 0..255 joined by dots, e.g. 192.168.1.10; names are not looked up)";

[[noreturn]] void refuse(const std::string& text) {
  throw std::invalid_argument(text);
}

// What the C library makes of a text with leading zeros (it reads them as octal).
std::string c_library_reading(const std::string& address) {
  in_addr parsed{};
  if (inet_aton(address.c_str(), &parsed) == 0) return "the C library refuses it";
  return "the C library reads them as octal and reaches " + std::string(inet_ntoa(parsed));
}

// Dotted decimal only, each number written without leading zeros.
void check_form(const std::string& address, unsigned (&octet)[4]) {
  if (address.empty()) refuse(std::string("an IPv4 address is needed") + k_ipv4_form);
  if (std::count(address.begin(), address.end(), ':') > 1) {
    refuse("'" + address + "' is an IPv6 address: an IPv4 address is needed" + k_ipv4_form);
  }
  const auto colon = address.find(':');
  if (colon == 0) {
    refuse("'" + address + "': an IPv4 address is needed before the port" + k_ipv4_form);
  }
  if (colon != std::string::npos) {
    refuse("'" + address + "': the port is fixed at 502; give the address alone (" +
           address.substr(0, colon) + ")");
  }
  if (address.find_first_not_of("0123456789.") != std::string::npos) {
    refuse("'" + address + "' is not an IPv4 address: an IPv4 address is needed" + k_ipv4_form);
  }
  std::size_t at = 0;
  bool zeros = false;
  for (int i = 0; i < 4; ++i) {
    const std::size_t end = i < 3 ? address.find('.', at) : address.size();
    const std::string number = address.substr(at, end == std::string::npos ? 0 : end - at);
    if (end == std::string::npos || number.empty() || number.size() > 3 ||
        number.find('.') != std::string::npos || std::stoul(number) > 255) {
      refuse("'" + address + "' is not an IPv4 address" + k_ipv4_form);
    }
    zeros = zeros || (number.size() > 1 && number[0] == '0');
    octet[i] = static_cast<unsigned>(std::stoul(number));
    at = end + 1;
  }
  if (zeros) {
    refuse("'" + address + "': leading zeros are refused (" + c_library_reading(address) +
           "); write " + std::to_string(octet[0]) + "." + std::to_string(octet[1]) + "." +
           std::to_string(octet[2]) + "." + std::to_string(octet[3]));
  }
}

}  // namespace

unitydrv_init_params init_params_of(const std::string& address) {
  unsigned octet[4];
  check_form(address, octet);
  unitydrv_init_params params{};
  params.octet1 = static_cast<uint8_t>(octet[0]);
  params.octet2 = static_cast<uint8_t>(octet[1]);
  params.octet3 = static_cast<uint16_t>(octet[2]);
  params.octet4 = static_cast<uint16_t>(octet[3]);
  return params;
}

void check_ipv4_address(const std::string& address) {
  init_params_of(address);
}

}  // namespace loaded_driver
