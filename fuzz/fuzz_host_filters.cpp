// The host filters fed fuzzed host records and a fuzzed controller reply: OutputFilterEx
// then InputFilterEx on one device, online or offline. Input: a flags byte (bit 0 offline,
// bit 1 write), a request count, then per request a 17-byte tag_ref, a write count and one
// write word, then per tag entry a read format byte and a type id; the rest is the reply.
// The reply is waiting at an in-memory peer before the request is sent, so no wait is spent.
// Only std::out_of_range (a reply shorter than the elements asked for) may leave a filter.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "driver/device_context.h"
#include "driver/tag_driver_offline_578.h"
#include "memory_transport.h"
#include "tools/common/tag_file_writer.h"

namespace {

constexpr std::size_t max_requests = 8;

class fuzz_input {
 public:
  fuzz_input(const uint8_t* data, std::size_t size) : data_(data), size_(size) {}
  uint8_t u8() { return pos_ < size_ ? data_[pos_++] : 0; }
  uint16_t u16() { return static_cast<uint16_t>(u8() | u8() << 8); }
  void take(void* out, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) static_cast<uint8_t*>(out)[i] = u8();
  }
  std::vector<unsigned char> rest() const {
    return pos_ < size_ ? std::vector<unsigned char>(data_ + pos_, data_ + size_)
                        : std::vector<unsigned char>{};
  }

 private:
  const uint8_t* data_;
  std::size_t size_;
  std::size_t pos_ = 0;
};

// One device for the whole run: a tag table with plain, member, subscripted and bit-array
// names, and dictionary types that send the request builders down their lookup paths.
device_context& the_device() {
  static device_context* device = [] {
    const std::string path = "/tmp/unitydrv_fuzz_host_filters.tags";
    tag_file::write_names(path, {"Counter", "Motor.Speed", "Levels[2]", "Alarms", "Alarms[1]",
                                 "Name", "Line[3].Mode"});
    void* handle = nullptr;
    driver_object.start_device(0, &handle, path.c_str(), 0);
    std::remove(path.c_str());
    auto* d = static_cast<device_context*>(handle);
    d->session.data_types[300].element_type = 25;  // an array of booleans
    d->session.data_types[301].element_type = 9;   // a string type
    d->session.data_types[301].name = std::string("STRING[16]") + '\0';
    d->session.data_types[302].element_type = 4;  // an array of INT
    d->session.socket.create(false);
    return d;
  }();
  return *device;
}

void run_filters(device_context& device, std::vector<_gui_request_>& requests, int count) {
  std::vector<_input_data_> results(requests.size());
  std::vector<_system_info> infos(requests.size());
  for (auto& info : infos) {
    info.info_valid = 1;
    info.device_handle = &device;
  }
  try {
    driver_object.outputfilter(requests.data(), count);
  } catch (const std::out_of_range&) {
  }
  driver_object.inputFilter(results.data(), nullptr, infos.data(), count);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  device_context& device = the_device();
  fuzz_input in(data, size);
  const uint8_t flags = in.u8();
  const std::size_t count = in.u8() % (max_requests + 1);

  std::vector<_gui_request_> requests(count > 0 ? count : 1);
  std::memset(requests.data(), 0, requests.size() * sizeof(_gui_request_));
  for (std::size_t i = 0; i < count; ++i) {
    _gui_request_& r = requests[i];
    in.take(&r.ref, sizeof(tag_ref));
    // Past one reply's value bytes even at 8 bytes an element, without minutes-long inputs.
    r.ref.element_count %= 300;
    r.request_kind = (flags & 2) != 0 ? 1 : 0;
    r.write.write_count = static_cast<uint16_t>(in.u16() % 8);
    r.write_words[0] = in.u16();
  }
  requests[0].device_handle = &device;
  for (uint32_t t = 0; t < device.tag_table.tag_count; ++t) {
    tag_entry& e = *device.tag_table.Get(t);
    e.read_format = in.u8();
    e.type_id = in.u16();
  }

  device.offline_mode = flags & 1;
  device.session.state = unity_process::state_ready;
  memory_transport::attach_waiting(device.session.socket.descriptor(), in.rest());
  run_filters(device, requests, static_cast<int>(count));
  memory_transport::detach();
  // Keys of the value map point at the interned element names: clear the map first.
  device.tag_values.clear();
  device.element_names.clear();
  return 0;
}
