// Host records as the host fills them, for the host tool, the tests and the benchmarks that
// drive the loaded library: requests, write requests and the results of one input round.
#pragma once

#include <cstring>
#include <string>
#include <vector>

#include "tools/common/driver_api.h"
#include "unitydrv/unitydrv.h"

namespace loaded_driver {

#if defined(UNITYDRV_LIBRARY_PATH)
// The library the tests or benchmarks were built with.
struct library : loaded_driver::driver_api {
  library() : driver_api(UNITYDRV_LIBRARY_PATH) {}
};
#endif

using loaded_driver::init_params_of;

// One host request: which tag, as which type, which elements, which bit.
struct request {
  uint32_t tag = 0;
  uint8_t type = 0;
  uint16_t array_index = 0;
  uint16_t count = 1;
  uint8_t bit_spec = 0;
  uint8_t index_off = 0;
};

// An array of zeroed host requests for the device, the first with request_kind kind.
inline std::vector<_gui_request_> requests(void* device, const std::vector<request>& wanted,
                                           uint8_t kind = 0) {
  std::vector<_gui_request_> out(wanted.empty() ? 1 : wanted.size());
  std::memset(static_cast<void*>(out.data()), 0, out.size() * sizeof(_gui_request_));
  for (std::size_t i = 0; i < wanted.size(); ++i) {
    out[i].ref.tag_index = wanted[i].tag;
    out[i].ref.type_code_a = wanted[i].type;
    out[i].ref.array_index = wanted[i].array_index;
    out[i].ref.element_count = wanted[i].count;
    out[i].ref.bit_spec = wanted[i].bit_spec;
    out[i].ref.index_off = wanted[i].index_off;
  }
  out[0].request_kind = kind;
  out[0].device_handle = device;
  return out;
}

// A write request of whole values (one unit per entry of words).
inline std::vector<_gui_request_> write_request(void* device, const request& one,
                                                const std::vector<uint16_t>& words,
                                                uint8_t bit_value = 0) {
  auto out = requests(device, {one}, 1);
  out[0].write.write_count = static_cast<uint16_t>(words.size());
  for (std::size_t i = 0; i < words.size() && i < 2058; ++i) out[0].write_words[i] = words[i];
  // The bit value shares its byte with write_count's high byte: left alone when zero, so
  // that a write of 256 words or more keeps its count.
  if (bit_value != 0) out[0].write.bit.write_bit_value = bit_value;
  return out;
}

// Results and bookkeeping for count positions, request ids 1000 + i.
struct input_round {
  explicit input_round(void* device, std::size_t count, uint32_t valid = 1, uint8_t fill = 0xAA)
      : results(count), infos(count) {
    std::memset(static_cast<void*>(results.data()), fill, count * sizeof(_input_data_));
    std::memset(static_cast<void*>(infos.data()), 0, count * sizeof(_system_info));
    for (std::size_t i = 0; i < count; ++i) infos[i].request_id = static_cast<uint32_t>(1000 + i);
    infos[0].info_valid = valid;
    infos[0].device_handle = device;
  }
  std::vector<uint16_t> units(std::size_t i, std::size_t n) const {
    std::vector<uint16_t> out;
    for (std::size_t k = 0; k < n; ++k) out.push_back(results[i].result_words[k]);
    return out;
  }

  std::vector<_input_data_> results;
  std::vector<_system_info> infos;
};

}  // namespace loaded_driver
