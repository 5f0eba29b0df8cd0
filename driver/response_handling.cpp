// InputFilterEx online: the result slots of the last OutputFilterEx become the host's
// results, or every result reports the session's failure.
#include "driver/device_context.h"
#include "driver/filter_steps.h"
#include "driver/tag_driver_offline_578.h"
#include "driver/trace_events.h"
#include "guard/guard.h"
#include "trace/trace.h"

namespace {

// Guarded: a round refused whole (not ready, too many requests or value bytes, an
// exception) fails every position, as a failed exchange does, and is reported once.
bool round_refused(device_context& device) {
  if (!guard::on || device.guarded.round_refusal == guard::served) return false;
  device.guarded.round_refusal = guard::served;
  return true;
}

}  // namespace

void tag_driver_offline_578::on_line_inputFilter(device_context& device, _input_data_* results,
                                                 _system_info* infos, int count) {
  filter_steps::preset_first_result(results[0]);
  const bool refused = round_refused(device);
  if (refused || device.session.state == unity_process::state_failed) {
    for (int i = 0; i < count; ++i) {
      results[i].result_code = 10;
      results[i].result_status = 2;
    }
    if (trace::on) trace_events::failure_reported(count);
    // Reported once; the next round tries the controller again.
    if (device.session.state == unity_process::state_failed) {
      device.session.state = unity_process::state_ready;
    }
    return;
  }
  if (infos[0].info_valid == 0 || count < 1) return;
  if (guard::on && device.guarded.refused != 0) {
    device.tag_table.slots.deliver_except(results, infos, count, device.guarded.refusals);
    return;
  }
  device.tag_table.slots.deliver(results, infos, count);
}
