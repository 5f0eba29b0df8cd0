#include "driver/guarded_calls.h"

#include <cstring>
#include <exception>

#include "driver/filter_steps.h"
#include "guard/guard.h"
#include "trace/trace.h"

namespace guarded_calls {
namespace {

// The trace line of the exception being handled.
void say(const char* entry_point, const char* outcome) {
  if (!trace::on) return;
  try {
    throw;
  } catch (const std::exception& e) {
    trace::emit("guarded", "entry=%s exception=\"%s\" caught: %s", entry_point, e.what(), outcome);
  } catch (...) {
    trace::emit("guarded", "entry=%s exception caught: %s", entry_point, outcome);
  }
}

}  // namespace

int start_failed(const char* entry_point) {
  say(entry_point, "result 0");
  return 0;
}

unitydrv_result init_failed(device_context& device, uint32_t* code) {
  say("GetInitCmdEx2", "code 10, device not ready");
  device.guarded.ready = false;
  device.session.stop();
  if (code != nullptr) *code = 10;
  return unitydrv_result{};
}

unitydrv_result round_failed(_gui_request_* requests, int count) {
  say("OutputFilterEx", "the round fails");
  device_context* device = requests != nullptr && count > 0
                               ? filter_steps::device_of(requests[0].device_handle)
                               : nullptr;
  if (device != nullptr) {
    device->guarded.round_refusal = guard::exception_raised;
    std::memset(requests[0].status, 0, sizeof(requests[0].status));
  }
  return filter_steps::filter_result();
}

int check_failed(device_context& device) {
  say("CheckInitCmdResponseEx2", "result 0, device not ready");
  device.guarded.ready = false;
  return 0;
}

void input_failed(_input_data_* results, _system_info*, int count) {
  say("InputFilterEx", "every result fails");
  for (int i = 0; results != nullptr && i < count; ++i) {
    results[i].result_status = 2;
    results[i].result_code = 10;
  }
}

}  // namespace guarded_calls
