#include "tools/host/driver_api.h"

#include <dlfcn.h>

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

}  // namespace panelhost
