// What a soak watches for leaks in its own process: open descriptors and heap in use.
#pragma once

#include <dirent.h>
#include <malloc.h>

namespace process_resources {

// Entries of /proc/self/fd (the directory's own descriptor and . and .. included: only
// differences mean anything).
inline long open_descriptors() {
  long n = 0;
  if (DIR* dir = ::opendir("/proc/self/fd")) {
    while (::readdir(dir) != nullptr) ++n;
    ::closedir(dir);
  }
  return n;
}

// Bytes allocated by malloc and not freed (not seen under AddressSanitizer's allocator).
inline long heap_in_use() {
  return static_cast<long>(::mallinfo2().uordblks);
}

}  // namespace process_resources
