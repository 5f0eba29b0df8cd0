#include "tools/host/host_device.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>

#include "tools/host/plc_type.h"

namespace panelhost {

namespace {

constexpr uint16_t k_port = 502;  // the driver's fixed port, for messages

tag_ref ref_of(const host_request& request) {
  tag_ref ref{};
  ref.tag_index = request.tag_index;
  ref.type_code_a = request.code;
  ref.array_index = request.array_index;
  ref.element_count = request.count;
  if (request.bit >= 0) ref.bit_spec = static_cast<uint8_t>(request.bit + 1);
  return ref;
}

// The host records are large (4 KiB each): keep them on the heap, zeroed.
template <typename T>
std::unique_ptr<T[]> zeroed(std::size_t n) {
  return std::unique_ptr<T[]>(new T[n]());
}

}  // namespace

std::size_t result_units(const host_request& request) {
  if (request.bit >= 0) return request.count;
  const plc_type* type = find_plc_type(request.code);
  return static_cast<std::size_t>(request.count) * (type ? type->units : 0);
}

host_device::host_device(driver_api& api, const std::string& tag_file, bool offline) : api_(api) {
  if (!std::ifstream(tag_file, std::ios::binary)) {
    throw std::runtime_error("cannot read tag file " + tag_file + ": " + std::strerror(errno));
  }
  api_.StartDeviceEx(offline ? 1 : 0, &handle_, tag_file.c_str(), 0);
}

host_device::~host_device() {
  api_.CloseDevice(0, handle_);
}

void host_device::connect(const std::string& address) {
  const unitydrv_init_params params = init_params_of(address);
  api_.InitEx(0, &params);
  uint32_t code = 0;
  api_.GetInitCmdEx2(&code, 0, 0, 0, &handle_);
  if (code == 10) {
    throw std::runtime_error("controller unreachable at " + address + ":" + std::to_string(k_port));
  }
  if (api_.CheckInitCmdResponseEx2(0, 0, &handle_) == 0) {
    throw std::runtime_error("initialisation incomplete: no data dictionary from " + address + ":" +
                             std::to_string(k_port));
  }
}

std::vector<host_result> host_device::read(const std::vector<host_request>& requests) {
  const std::size_t n = requests.size();
  std::vector<host_result> results(n);
  if (n == 0) return results;
  auto gui = zeroed<_gui_request_>(n);
  for (std::size_t i = 0; i < n; ++i) {
    gui[i].ref = ref_of(requests[i]);
    gui[i].device_handle = handle_;
  }
  api_.OutputFilterEx(gui.get(), static_cast<int>(n));

  auto input = zeroed<_input_data_>(n);
  auto infos = zeroed<_system_info>(n);
  for (std::size_t i = 0; i < n; ++i) {
    infos[i].info_valid = 1;
    infos[i].request_id = static_cast<uint32_t>(i + 1);
    infos[i].device_handle = handle_;
  }
  api_.InputFilterEx(input.get(), nullptr, infos.get(), static_cast<int>(n));
  for (std::size_t i = 0; i < n; ++i) {
    results[i].ok = input[i].result_status == 0;
    const std::size_t units = std::min<std::size_t>(result_units(requests[i]), 2048);
    results[i].units.assign(input[i].result_words, input[i].result_words + units);
  }
  return results;
}

void host_device::write(const host_request& request, const write_data& data) {
  if (data.words.size() > 2058) throw bad_value("value too long for one request");
  auto gui = zeroed<_gui_request_>(1);
  gui[0].request_kind = 1;
  gui[0].ref = ref_of(request);
  gui[0].device_handle = handle_;
  if (is_bit_type(request.code) || request.bit >= 0) {
    gui[0].write.bit.write_bit_value = data.bit_value;
    // An offline device stores whole values from the words, a bit type's too.
    gui[0].write_words[0] = data.bit_value;
  } else {
    gui[0].write.write_count = static_cast<uint16_t>(data.words.size());
    std::copy(data.words.begin(), data.words.end(), gui[0].write_words);
  }
  api_.OutputFilterEx(gui.get(), 1);
}

void host_device::drop() {
  api_.Timeout(0, handle_);
}

}  // namespace panelhost
