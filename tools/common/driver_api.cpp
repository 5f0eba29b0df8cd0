#include "tools/common/driver_api.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstdio>
#include <stdexcept>

namespace panelhost {

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

unitydrv_init_params init_params_of(const std::string& address) {
  unsigned octet[4];
  char tail = 0;
  const auto colon = address.find(':');
  if (colon != std::string::npos) {
    throw std::invalid_argument("'" + address + "': the port is fixed at 502; give the address " +
                                "alone (" + address.substr(0, colon) + ")");
  }
  if (std::sscanf(address.c_str(), "%3u.%3u.%3u.%3u%c", &octet[0], &octet[1], &octet[2], &octet[3],
                  &tail) != 4 ||
      std::any_of(octet, octet + 4, [](unsigned o) { return o > 255; }) ||
      address.find_first_not_of("0123456789.") != std::string::npos) {
    throw std::invalid_argument("'" + address +
                                "' is not an IPv4 address (four numbers 0..255 joined by dots, "
                                "e.g. 192.168.1.10; names are not looked up)");
  }
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

}  // namespace panelhost
