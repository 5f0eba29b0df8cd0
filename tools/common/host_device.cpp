#include "tools/common/host_device.h"

namespace loaded_driver {

int device::start(const std::string& tag_path, uint8_t offline, uint32_t offset) {
  started_ = true;
  return api_.StartDeviceEx(offline, &handle_, tag_path.c_str(), offset);
}

uint32_t device::get_init(unitydrv_result* result) {
  uint32_t code = 99;
  const unitydrv_result r = api_.GetInitCmdEx2(&code, 0, 0, 0, &handle_);
  if (result != nullptr) *result = r;
  return code;
}

int device::check_init() {
  return api_.CheckInitCmdResponseEx2(0, 0, &handle_);
}

input_round device::read(const std::vector<request>& wanted, unitydrv_result* output,
                         uint8_t fill) {
  auto requests = loaded_driver::requests(handle_, wanted);
  const int n = static_cast<int>(wanted.size());
  // No request at all still hands the driver one zeroed record.
  const unitydrv_result out =
      api_.OutputFilterEx(requests.data(), static_cast<int>(requests.size()));
  if (output != nullptr) *output = out;
  input_round round(handle_, wanted.size(), 1, fill);
  api_.InputFilterEx(round.results.data(), nullptr, round.infos.data(), n);
  return round;
}

unitydrv_result device::write(const request& one, const std::vector<uint16_t>& words,
                              uint8_t bit_value) {
  auto requests = write_request(handle_, one, words, bit_value);
  return api_.OutputFilterEx(requests.data(), 1);
}

unitydrv_result device::write_bit(const request& one, uint8_t value) {
  auto requests = loaded_driver::requests(handle_, {one}, 1);
  requests[0].write.bit.write_bit_value = value;
  requests[0].write_words[0] = value;
  return api_.OutputFilterEx(requests.data(), 1);
}

void device::drop() {
  api_.Timeout(0, handle_);
}

void device::close() {
  if (!started_) return;
  started_ = false;
  api_.CloseDevice(0, handle_);
  handle_ = nullptr;
}

}  // namespace loaded_driver
