// The release of this build as text inside the library file, in the what(1) form: a copied
// libunitydrv.so.0 still tells `strings` and panelhost --version which release it is. It is
// a local object, not a symbol: only the entry points leave the library.
#include "unitydrv/version.h"

namespace {
[[gnu::used, gnu::section(".unitydrv.version")]] const char library_version[] =
    "@(#)libunitydrv " UNITYDRV_VERSION;
}  // namespace
