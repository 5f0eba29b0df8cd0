// The driver's own share of a host read cycle: OutputFilterEx and InputFilterEx over 100
// INT requests, against a device whose session talks to a local peer that answers every
// request at once with the same reply.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "driver/device_context.h"
#include "driver/tag_driver_offline_578.h"
#include "tests/support/loopback_peer.h"
#include "tools/common/tag_file_writer.h"

namespace {

constexpr int kTags = 100;

// Read reply for kTags INT values: value i is 1000 + i.
std::vector<unsigned char> int_values_reply() {
  plcsim::msg_writer message = harness::unity_message();
  for (int i = 0; i < kTags; ++i) message.le16(static_cast<uint16_t>(1000 + i));
  return harness::modbus_reply(message.bytes());
}

// A device of kTags INT tags, resolved by hand, its session connected to the peer.
class online_device {
 public:
  online_device()
      : peer_([reply = int_values_reply()](const auto&, std::size_t, bool&) { return reply; }) {
    const std::string path = "/tmp/micro_host_filters_" + std::to_string(getpid()) + ".tags";
    std::vector<std::string> names;
    for (int i = 0; i < kTags; ++i) names.push_back("Value" + std::to_string(i));
    tag_file::write_names(path, names);
    device.tag_table.Read(path.c_str(), 0);
    std::remove(path.c_str());
    for (uint32_t i = 0; i < kTags; ++i) {
      tag_entry* e = device.tag_table.Get(i);
      e->read_format = 2;
      e->type_id = 4;
      e->location = {1, 0, static_cast<unsigned char>(2 * i), 0, 0, 0};
    }
    connected = device.session.setup_device("127.0.0.1", peer_.port(), 100) != 0;
    device.session.state = unity_process::state_ready;
    requests.resize(kTags);
    std::memset(static_cast<void*>(requests.data()), 0, kTags * sizeof(_gui_request_));
    for (uint32_t i = 0; i < kTags; ++i) {
      requests[i].ref.tag_index = i;
      requests[i].ref.type_code_a = UNITYDRV_TYPE_INT;
      requests[i].ref.element_count = 1;
    }
    requests[0].device_handle = &device;
    results.resize(kTags);
    infos.resize(kTags);
    std::memset(static_cast<void*>(infos.data()), 0, kTags * sizeof(_system_info));
    infos[0].info_valid = 1;
    infos[0].device_handle = &device;
  }

  bool delivered() const {
    for (int i = 0; i < kTags; ++i) {
      if (results[i].result_code != 5 || results[i].result_words[0] != 1000 + i) return false;
    }
    return true;
  }

  harness::scripted_peer peer_;
  device_context device;
  bool connected = false;
  std::vector<_gui_request_> requests;
  std::vector<_input_data_> results;
  std::vector<_system_info> infos;
};

// One exchange per iteration: most of the time is the loopback round trip, the rest is ours.
void BM_outputfilter_read_100(benchmark::State& state) {
  online_device d;
  if (!d.connected) return state.SkipWithError("peer not reachable");
  for (auto _ : state) {
    driver_object.outputfilter(d.requests.data(), kTags);
  }
  driver_object.inputFilter(d.results.data(), nullptr, d.infos.data(), kTags);
  if (!d.delivered()) state.SkipWithError("values not delivered");
  state.SetItemsProcessed(state.iterations() * kTags);
}
BENCHMARK(BM_outputfilter_read_100);

void BM_inputFilter_100(benchmark::State& state) {
  online_device d;
  if (!d.connected) return state.SkipWithError("peer not reachable");
  driver_object.outputfilter(d.requests.data(), kTags);
  for (auto _ : state) {
    driver_object.inputFilter(d.results.data(), nullptr, d.infos.data(), kTags);
  }
  if (!d.delivered()) state.SkipWithError("values not delivered");
  state.SetItemsProcessed(state.iterations() * kTags);
}
BENCHMARK(BM_inputFilter_100);

}  // namespace
