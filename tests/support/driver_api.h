// The driver as the host sees it: libunitydrv.so loaded with dlopen, its 14 entry points
// resolved by name, and host records laid out at their byte offsets.
#pragma once

#include <dlfcn.h>

#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "unitydrv/unitydrv.h"

namespace driver_api {

class library {
 public:
  explicit library(const char* path = UNITYDRV_LIBRARY_PATH) {
    handle_ = ::dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (handle_ == nullptr) throw std::runtime_error(std::string("dlopen: ") + ::dlerror());
    resolve(GetAttributeEx, "ORMAND_DRV_GetAttributeEx");
    resolve(GetDeviceTableEx, "ORMAND_DRV_GetDeviceTableEx");
    resolve(GetCommandSizeLimitInfo, "ORMAND_DRV_GetCommandSizeLimitInfo");
    resolve(GetDataType, "ORMAND_DRV_GetDataType");
    resolve(GetCommParam, "ORMAND_DRV_GetCommParam");
    resolve(SetCommParam, "ORMAND_DRV_SetCommParam");
    resolve(InitEx, "ORMAND_DRV_InitEx");
    resolve(StartDeviceEx, "ORMAND_DRV_StartDeviceEx");
    resolve(GetInitCmdEx2, "ORMAND_DRV_GetInitCmdEx2");
    resolve(CheckInitCmdResponseEx2, "ORMAND_DRV_CheckInitCmdResponseEx2");
    resolve(OutputFilterEx, "ORMAND_DRV_OutputFilterEx");
    resolve(InputFilterEx, "ORMAND_DRV_InputFilterEx");
    resolve(Timeout, "ORMAND_DRV_Timeout");
    resolve(CloseDevice, "ORMAND_DRV_CloseDevice");
  }
  ~library() { ::dlclose(handle_); }
  library(const library&) = delete;
  library& operator=(const library&) = delete;

  decltype(&ORMAND_DRV_GetAttributeEx) GetAttributeEx = nullptr;
  decltype(&ORMAND_DRV_GetDeviceTableEx) GetDeviceTableEx = nullptr;
  decltype(&ORMAND_DRV_GetCommandSizeLimitInfo) GetCommandSizeLimitInfo = nullptr;
  decltype(&ORMAND_DRV_GetDataType) GetDataType = nullptr;
  decltype(&ORMAND_DRV_GetCommParam) GetCommParam = nullptr;
  decltype(&ORMAND_DRV_SetCommParam) SetCommParam = nullptr;
  decltype(&ORMAND_DRV_InitEx) InitEx = nullptr;
  decltype(&ORMAND_DRV_StartDeviceEx) StartDeviceEx = nullptr;
  decltype(&ORMAND_DRV_GetInitCmdEx2) GetInitCmdEx2 = nullptr;
  decltype(&ORMAND_DRV_CheckInitCmdResponseEx2) CheckInitCmdResponseEx2 = nullptr;
  decltype(&ORMAND_DRV_OutputFilterEx) OutputFilterEx = nullptr;
  decltype(&ORMAND_DRV_InputFilterEx) InputFilterEx = nullptr;
  decltype(&ORMAND_DRV_Timeout) Timeout = nullptr;
  decltype(&ORMAND_DRV_CloseDevice) CloseDevice = nullptr;

 private:
  template <typename F>
  void resolve(F& fn, const char* name) {
    void* symbol = ::dlsym(handle_, name);
    if (symbol == nullptr) throw std::runtime_error(std::string("missing entry point ") + name);
    fn = reinterpret_cast<F>(symbol);
  }

  void* handle_ = nullptr;
};

// The InitEx record for a dotted IPv4 address a.b.c.d.
inline unitydrv_init_params init_params(const std::string& dotted) {
  unsigned a = 0, b = 0, c = 0, d = 0;
  if (std::sscanf(dotted.c_str(), "%u.%u.%u.%u", &a, &b, &c, &d) != 4) {
    throw std::invalid_argument("not a dotted address: " + dotted);
  }
  unitydrv_init_params p{};
  p.octet1 = static_cast<uint8_t>(a);
  p.octet2 = static_cast<uint8_t>(b);
  p.octet3 = static_cast<uint16_t>(c);
  p.octet4 = static_cast<uint16_t>(d);
  return p;
}

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
  out[0].write.bit.write_bit_value = bit_value;
  return out;
}

// Results and bookkeeping for count positions, request ids 1000 + i.
struct input_round {
  explicit input_round(void* device, std::size_t count, uint32_t valid = 1)
      : results(count), infos(count) {
    std::memset(static_cast<void*>(results.data()), 0xAA, count * sizeof(_input_data_));
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

}  // namespace driver_api
