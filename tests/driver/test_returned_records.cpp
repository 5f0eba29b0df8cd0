// The two-word records that OutputFilterEx and GetInitCmdEx2 return, as the host gets them
// through dlopen. On 32-bit ARM they come back through memory that the caller passes first;
// elsewhere (x86-64) in registers.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <vector>

#include "tools/common/host_records.h"

namespace {

using record_bytes = std::array<uint8_t, sizeof(unitydrv_result)>;

// What the host had in its record before the call.
constexpr record_bytes host_fill = {0xA1, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6, 0xA7, 0xA8};

#if defined(__arm__)
// AAPCS: the same call as the declared one, with the record's address made visible.
using filter_in_memory = void (*)(unitydrv_result*, _gui_request_*, int);
using init_in_memory = void (*)(unitydrv_result*, uint32_t*, uint32_t, uint32_t, uint32_t, void**);

// Through the generic function pointer type, which converts to any other.
template <typename To, typename From>
To same_call(From entry) {
  return reinterpret_cast<To>(reinterpret_cast<void (*)()>(entry));
}
#endif

struct record_case {
  const char* what;
  bool init_call;  // GetInitCmdEx2, else OutputFilterEx
  uint8_t offline;
  uint8_t request_kind;
  record_bytes want;  // on 32-bit ARM: the host's bytes where the driver sets none
};

// Regression: the driver wrote all 8 bytes of the returned record, clearing bytes 0 and 1
// of the filter's record and the first word of GetInitCmdEx2's, which belong to the host.
TEST(ReturnedRecords, OnlyTheNamedBytesAreWritten) {
  const record_case cases[] = {
      {"offline read", false, 1, 0, {0xA1, 0xA2, 0, 8, 0, 0, 0, 0}},
      {"offline write", false, 1, 1, {0xA1, 0xA2, 0, 8, 0, 0, 0, 0}},
      {"online read of nothing", false, 0, 0, {0xA1, 0xA2, 0, 8, 0, 0, 0, 0}},
      {"offline handshake", true, 1, 0, {0xA1, 0xA2, 0xA3, 0xA4, 0, 0, 0, 0}},
      {"handshake without a controller", true, 0, 0, {0xA1, 0xA2, 0xA3, 0xA4, 0, 0, 0, 0}},
  };
  loaded_driver::library lib;
  const unitydrv_init_params nowhere = loaded_driver::init_params_of("127.0.0.1");
  lib.InitEx(0, &nowhere);  // nobody listens at port 502 in the test's own network
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    void* device = nullptr;
    ASSERT_EQ(lib.StartDeviceEx(c.offline, &device, "/nonexistent.tags", 0), 0);
    std::vector<_gui_request_> req = loaded_driver::requests(device, {}, c.request_kind);
    const int count = c.offline != 0 ? 1 : 0;
    uint32_t code = 99;
    unitydrv_result record;
    std::memcpy(&record, host_fill.data(), sizeof record);
#if defined(__arm__)
    if (c.init_call) {
      same_call<init_in_memory>(lib.GetInitCmdEx2)(&record, &code, 0, 0, 0, &device);
    } else {
      same_call<filter_in_memory>(lib.OutputFilterEx)(&record, req.data(), count);
    }
    record_bytes want = c.want;
#else
    record = c.init_call ? lib.GetInitCmdEx2(&code, 0, 0, 0, &device)
                         : lib.OutputFilterEx(req.data(), count);
    // In registers the host's bytes read 0, as the public header says.
    record_bytes want = c.want;
    const std::size_t host_bytes = c.init_call ? 4 : 2;
    for (std::size_t b = 0; b < host_bytes; ++b) want[b] = 0;
#endif
    record_bytes got{};
    std::memcpy(got.data(), &record, sizeof record);
    EXPECT_EQ(got, want);
    if (c.init_call) {
      EXPECT_EQ(code, c.offline != 0 ? 0u : 10u);
    }
    lib.CloseDevice(0, device);
  }
}

}  // namespace
