// The one place where a device's offline_mode chooses between the online filters (request
// translation, response handling) and the offline ones: neither path calls the other.
#include "driver/device_context.h"
#include "driver/filter_steps.h"
#include "driver/tag_driver_offline_578.h"

unitydrv_result tag_driver_offline_578::outputfilter(_gui_request_* requests, int count) {
  if (requests == nullptr) return filter_steps::filter_result();
  device_context* device = filter_steps::device_of(requests[0].device_handle);
  if (device == nullptr) return filter_steps::filter_result();
  if (device->offline_mode != 0) return off_line_outputfilter(requests, count);
  return on_line_outputfilter(*device, requests, count);
}

void tag_driver_offline_578::inputFilter(_input_data_* results, _frame_data_* frame,
                                         _system_info* infos, int count) {
  if (results == nullptr || infos == nullptr) return;
  device_context* device = filter_steps::device_of(infos[0].device_handle);
  if (device == nullptr) return;
  if (device->offline_mode != 0) {
    off_line_inputFilter(results, frame, infos, count);
    return;
  }
  on_line_inputFilter(*device, results, infos, count);
}
