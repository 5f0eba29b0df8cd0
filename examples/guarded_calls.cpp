// The C++ side of guarded_calls.h: catches what the driver raises (std::out_of_range for a
// reply too short for the values asked, std::bad_alloc), closes the device's connection
// and reports it as a result that a C host can test.
#include "guarded_calls.h"

#include <cstdio>
#include <exception>

namespace {

int failed(unitydrv_timeout_fn timeout, void* handle, const char* text, char* what,
           std::size_t what_size) {
  if (what != nullptr && what_size > 0) std::snprintf(what, what_size, "%s", text);
  timeout(0, handle);
  return -1;
}

}  // namespace

extern "C" int unitydrv_guarded_output(unitydrv_output_filter_fn output_filter,
                                       unitydrv_timeout_fn timeout, _gui_request_* requests,
                                       int count, char* what, size_t what_size) {
  void* handle = requests != nullptr && count > 0 ? requests[0].device_handle : nullptr;
  try {
    output_filter(requests, count);
    return 0;
  } catch (const std::exception& e) {
    return failed(timeout, handle, e.what(), what, what_size);
  } catch (...) {
    return failed(timeout, handle, "unknown exception", what, what_size);
  }
}

extern "C" int unitydrv_guarded_init(unitydrv_init_cmd_fn init_cmd, unitydrv_timeout_fn timeout,
                                     uint32_t* code, void** handle, char* what, size_t what_size) {
  try {
    init_cmd(code, 0, 0, 0, handle);
    return 0;
  } catch (const std::exception& e) {
    return failed(timeout, handle != nullptr ? *handle : nullptr, e.what(), what, what_size);
  } catch (...) {
    return failed(timeout, handle != nullptr ? *handle : nullptr, "unknown exception", what,
                  what_size);
  }
}
