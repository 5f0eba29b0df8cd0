#include "tools/host/library_version.h"

#include <dlfcn.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <vector>

namespace panelhost {

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
