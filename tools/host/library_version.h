// The release of the driver a library path loads, as panelhost --version reports it.
#pragma once

#include <string>

namespace panelhost {

// "libunitydrv 0.2.0 (/usr/lib/x86_64-linux-gnu/libunitydrv.so.0)": the file the loader
// chose for `library` and the version text that file carries; a line saying why not when
// the library does not load or carries no version.
std::string loaded_library_version(const std::string& library);

}  // namespace panelhost
