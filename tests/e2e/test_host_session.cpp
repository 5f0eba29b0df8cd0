// The driver driven the way the host drives it, through dlopen, against the simulated
// controller of examples/plant.json on a loopback address at port 502.
#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/plant_device.h"

namespace {

using loaded_driver::request;

// Tag records start 5 bytes into the file, so the offset reaches StartDeviceEx too.
class HostSession : public plant::device_test {
 protected:
  HostSession() : device_test(5) {}

  void start(uint8_t offline) {
    start_device(offline);
    initialise();
  }
};

// A tag of the example, how the host reads it, and where its bytes live.
struct tag_case {
  const char* name;
  uint8_t type;
  uint16_t array_index;
  uint16_t count;
  const char* variable;
  uint32_t offset;
  unsigned element_size;
};

const tag_case every_kind[] = {
    {"Motor1.Speed", UNITYDRV_TYPE_REAL, 0, 1, "Motor1", 0, 4},
    {"Motor1.Current", UNITYDRV_TYPE_REAL, 0, 1, "Motor1", 4, 4},
    {"Motor1.Mode", UNITYDRV_TYPE_INT, 0, 1, "Motor1", 10, 2},
    {"Motor1.Starts", UNITYDRV_TYPE_UDINT, 0, 1, "Motor1", 12, 4},
    {"Motor2.Starts", UNITYDRV_TYPE_UDINT, 0, 1, "Motor2", 12, 4},
    {"Line[2].Speed", UNITYDRV_TYPE_REAL, 0, 1, "Line", 2 * 16, 4},
    {"Line[3].Starts", UNITYDRV_TYPE_UDINT, 0, 1, "Line", 3 * 16 + 12, 4},
    {"Counter", UNITYDRV_TYPE_INT, 0, 1, "Counter", 0, 2},
    {"Total", UNITYDRV_TYPE_DINT, 0, 1, "Total", 0, 4},
    {"Production", UNITYDRV_TYPE_UDINT, 0, 1, "Production", 0, 4},
    {"Alarms", UNITYDRV_TYPE_WORD, 0, 1, "Alarms", 0, 2},
    {"Status", UNITYDRV_TYPE_DWORD, 0, 1, "Status", 0, 4},
    {"Levels", UNITYDRV_TYPE_INT, 2, 3, "Levels", 4, 2},
    {"Name", UNITYDRV_TYPE_STRING, 0, 7, "Name", 0, 1},
    {"Energy", UNITYDRV_TYPE_LINT, 0, 1, "Energy", 0, 8},
    {"Temperature", UNITYDRV_TYPE_REAL, 0, 1, "Temperature", 0, 4},
    {"Ready", UNITYDRV_TYPE_BOOL, 0, 1, "Ready", 0, 1},
    {"Setpoint", UNITYDRV_TYPE_REAL, 0, 1, "Setpoint", 0, 4},
};

TEST_F(HostSession, ReadsEveryKindOfTagAsTheControllerHoldsIt) {
  start(0);
  std::vector<request> wanted;
  for (const auto& c : every_kind) {
    wanted.push_back({tag(c.name), c.type, c.array_index, c.count});
  }
  const auto round = read(wanted);
  for (std::size_t i = 0; i < wanted.size(); ++i) {
    const auto& c = every_kind[i];
    SCOPED_TRACE(c.name);
    const auto want = held(c.variable, c.element_size, c.offset / c.element_size, c.count);
    EXPECT_EQ(round.results[i].result_status, 0);
    EXPECT_EQ(round.results[i].result_code, 5);
    EXPECT_EQ(round.results[i].request_id, 1000u + i);
    EXPECT_EQ(round.units(i, want.size()), want);
  }
  // A few values straight from the project file.
  EXPECT_EQ(round.units(7, 1), std::vector<uint16_t>{0xFFD6});  // Counter -42
  EXPECT_EQ(round.units(9, 2), (std::vector<uint16_t>{0x5E00, 0xB2D0}));
  EXPECT_EQ(round.units(12, 3), (std::vector<uint16_t>{30, 40, 50}));
  EXPECT_EQ(round.units(13, 7), (std::vector<uint16_t>{'P', 'L', 'A', 'N', 'T', '-', 'A'}));
}

TEST_F(HostSession, WrittenValuesReachTheControllerAndReadBack) {
  start(0);
  write({tag("Counter"), UNITYDRV_TYPE_INT}, {1234});
  write({tag("Levels"), UNITYDRV_TYPE_INT, 5}, {555});
  write({tag("Total"), UNITYDRV_TYPE_DINT}, {0x5678, 0x1234});
  write({tag("Motor1.Mode"), UNITYDRV_TYPE_INT}, {7});
  EXPECT_EQ(memory("Counter", 0, 2), (std::vector<uint8_t>{0xD2, 0x04}));
  EXPECT_EQ(memory("Levels", 10, 2), (std::vector<uint8_t>{0x2B, 0x02}));
  EXPECT_EQ(memory("Total", 0, 4), (std::vector<uint8_t>{0x78, 0x56, 0x34, 0x12}));
  const auto round = read({{tag("Counter"), UNITYDRV_TYPE_INT},
                           {tag("Levels"), UNITYDRV_TYPE_INT, 4, 3},
                           {tag("Total"), UNITYDRV_TYPE_DINT},
                           {tag("Motor1.Mode"), UNITYDRV_TYPE_INT}});
  EXPECT_EQ(round.units(0, 1), std::vector<uint16_t>{1234});
  EXPECT_EQ(round.units(1, 3), (std::vector<uint16_t>{50, 555, 70}));
  EXPECT_EQ(round.units(2, 2), (std::vector<uint16_t>{0x5678, 0x1234}));
  EXPECT_EQ(round.units(3, 1), std::vector<uint16_t>{7});
}

TEST_F(HostSession, CloseDeviceDropsTheConnection) {
  start(0);
  host_->close();
  lib_->CloseDevice(0, nullptr);
  lib_->Timeout(0, nullptr);
  EXPECT_EQ(server_->connection_count(), 1u);
}

// A controller pads a string of odd declared length, read whole, to whole words. The
// driver takes exactly the characters asked for from the reply, so the pad byte becomes the
// first byte of the next request's value: STRING[5] "ABCDE" then INT 0x1234 reads 0x3400.
class OddString : public plant::device_test {
 protected:
  OddString() : device_test(0, "tests/e2e/odd_string.json", "tests/e2e/odd_string_tags.txt") {}
};

TEST_F(OddString, ThePadByteOfAStringReadWholeShiftsTheValuesAfterIt) {
  start_device(0);
  initialise();
  const std::vector<uint16_t> code = {'A', 'B', 'C', 'D', 'E'};
  const struct {
    std::vector<loaded_driver::request> wanted;
    std::vector<uint16_t> code, after;
  } rounds[] = {
      {{{0, UNITYDRV_TYPE_STRING, 0, 5}, {1, UNITYDRV_TYPE_INT}}, code, {0x3400}},
      {{{0, UNITYDRV_TYPE_STRING, 0, 4}, {1, UNITYDRV_TYPE_INT}}, {'A', 'B', 'C', 'D'}, {0x1234}},
      {{{1, UNITYDRV_TYPE_INT}, {0, UNITYDRV_TYPE_STRING, 0, 5}}, code, {0x1234}},
  };
  for (const auto& r : rounds) {
    const auto round = read(r.wanted);
    const std::size_t at_code = r.wanted[0].tag == 0 ? 0 : 1;
    EXPECT_EQ(round.units(at_code, r.code.size()), r.code);
    EXPECT_EQ(round.units(1 - at_code, 1), r.after);
    EXPECT_EQ(round.results[1 - at_code].result_status, 0);
  }
}

// A host that calls before it has a device, or after it lost one, must not end its own
// process: every entry point takes a missing handle (or a null pointer to one), the trace
// included.
TEST(Lifecycle, MissingHandlesAreIgnoredByEveryEntryPoint) {
  loaded_driver::driver_api lib(UNITYDRV_LIBRARY_PATH);
  void* no_device = nullptr;
  for (void** handle : {static_cast<void**>(nullptr), &no_device}) {
    uint32_t code = 0;
    lib.GetInitCmdEx2(&code, 0, 0, 0, handle);
    EXPECT_EQ(code, 10u);
    lib.GetInitCmdEx2(nullptr, 0, 0, 0, handle);
    EXPECT_EQ(lib.CheckInitCmdResponseEx2(0, 0, handle), 0);
  }
  lib.OutputFilterEx(nullptr, 0);
  lib.InputFilterEx(nullptr, nullptr, nullptr, 0);
  lib.Timeout(0, nullptr);
  lib.CloseDevice(0, nullptr);
}

}  // namespace
