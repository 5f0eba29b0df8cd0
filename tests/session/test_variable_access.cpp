// Reads and writes of single values, array element runs, strings and bits against the
// simulator, and the session's behaviour under the simulator's scripted faults.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/session/session_download.h"

namespace {

using bytes = std::vector<unsigned char>;
using session_test::download_dictionary;
using session_test::key;

constexpr uint16_t motor_type = 100;
constexpr uint16_t int_array_type = 101;
constexpr uint16_t ebool_array_type = 102;
constexpr uint16_t string_type = 103;

struct slot {
  const char* name;
  uint16_t type;
  uint32_t offset;
  bytes initial;
};

const std::vector<slot> slots = {
    {"Counter", 4, 0, {0x2A, 0x00}},
    {"Total", 6, 4, {0x01, 0x02, 0x03, 0x04}},
    {"Big", 16, 16, {1, 2, 3, 4, 5, 6, 7, 8}},
    {"Values", int_array_type, 24, {0, 0, 1, 0, 2, 0, 3, 0, 4, 0, 5, 0, 6, 0, 7, 0, 8, 0, 9, 0}},
    {"Flags", ebool_array_type, 44, {0, 1, 0, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}},
    {"Name",
     string_type,
     60,
     {'C', 'o', 'n', 'v', 'e', 'y', 'o', 'r', ' ', 'l', 'i', 'n', 'e', ' ', '1', 0}},
    {"Motor1", motor_type, 76, {0x10, 0x00, 0x00, 0x00, 0x80, 0x3F, 0x01, 0x00}},
    {"Running", 25, 84, {0x00}},
};

plcsim::project plant() {
  plcsim::project p;
  p.plc_type = "BMX P34 2020";
  p.types[motor_type] = {motor_type, "MOTOR",
                         "struct",   {{"Speed", 4, 0}, {"Current", 8, 2}, {"Running", 25, 6}},
                         0,          {}};
  p.types[int_array_type] = {int_array_type, "ARRAY[0..9] OF INT", "array", {}, 4, {{0, 9}}};
  p.types[ebool_array_type] = {ebool_array_type, "ARRAY[0..15] OF EBOOL", "array", {}, 25,
                               {{0, 15}}};
  p.types[string_type] = {string_type, "STRING[16]", "string", {}, 0, {}};
  for (const slot& s : slots) {
    p.variables.push_back({s.name, s.type, 1, s.offset});
    p.initial[1][s.offset] = std::vector<uint8_t>(s.initial.begin(), s.initial.end());
  }
  return p;
}

class Access : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(plc.start_on_free_loopback());
    ASSERT_TRUE(download_dictionary(session, plc));
  }

  read_comm item(const char* name, uint8_t format, uint16_t type, uint16_t count,
                 uint16_t element_offset = 0, uint64_t member_offset = 0) {
    const table& t = session.tables.at(key(name));
    read_comm i;
    std::copy(t.location.begin(), t.location.end(), i.location.begin());
    i.read_format = format;
    i.type_id = type;
    i.count = count;
    i.element_offset = element_offset;
    i.member_offset = member_offset;
    return i;
  }

  bytes memory(uint32_t offset, std::size_t n) {
    const std::vector<uint8_t> m = plc.read_memory(1, offset, n);
    return bytes(m.begin(), m.end());
  }

  plcsim::server plc{plant()};
  unity_process session;
};

TEST_F(Access, ReadsSingleValuesOfEveryWidthInOneRequest) {
  std::vector<read_comm> items{item("Counter", 2, 4, 1), item("Total", 3, 6, 1),
                               item("Big", 4, 16, 1), item("Running", 0, 25, 1),
                               item("Motor1", 3, 8, 1, 0, 2)};
  bytes values;
  ASSERT_EQ(session.read(items, values), 1);
  bytes expected = memory(0, 2);
  for (const bytes& b : {memory(4, 4), memory(16, 8), memory(84, 1), memory(78, 4)})
    expected.insert(expected.end(), b.begin(), b.end());
  EXPECT_EQ(values, expected);
  EXPECT_EQ(session.state, unity_process::state_read_ok);
}

TEST_F(Access, ReadsRunsStringsAndBits) {
  std::vector<read_comm> run{item("Values", 0x21, int_array_type, 4, 2 * 2)};
  bytes values;
  ASSERT_EQ(session.read(run, values), 1);
  EXPECT_EQ(values, (bytes{2, 0, 3, 0, 4, 0, 5, 0}));

  std::vector<read_comm> text{item("Name", 255, string_type, 16)};
  ASSERT_EQ(session.read(text, values), 1);
  EXPECT_EQ(values, memory(60, 16));

  std::vector<read_comm> bit{item("Flags", 0x21, ebool_array_type, 1, 3)};
  ASSERT_EQ(session.read(bit, values), 1);
  EXPECT_EQ(values, bytes{1});
  EXPECT_EQ(bit[0].single_element, 1);
}

TEST_F(Access, WritesReachControllerMemory) {
  read_comm counter = item("Counter", 2, 4, 1);
  counter.data = {0x34, 0x12};
  ASSERT_EQ(session.write({counter}), 1);
  EXPECT_EQ(session.state, unity_process::state_write_ok);
  EXPECT_EQ(memory(0, 2), (bytes{0x34, 0x12}));

  read_comm running = item("Running", 0, 25, 1);
  running.data = {0x80};
  ASSERT_EQ(session.write({running}), 1);
  EXPECT_EQ(memory(84, 1), bytes{0x01});

  read_comm run = item("Values", 255, int_array_type, 3, 1 * 2);
  run.data = {0xAA, 0x00, 0xBB, 0x00, 0xCC, 0x00};
  ASSERT_EQ(session.write({run}), 1);
  EXPECT_EQ(memory(24, 10), (bytes{0, 0, 0xAA, 0, 0xBB, 0, 0xCC, 0, 4, 0}));

  read_comm name = item("Name", 255, string_type, 16);
  const std::string text = "Packing line 22";
  name.data.assign(text.begin(), text.end());
  name.data.push_back(0);
  ASSERT_EQ(session.write({name}), 1);
  EXPECT_EQ(memory(60, 16), bytes(name.data.begin(), name.data.end()));

  std::vector<read_comm> back{item("Counter", 2, 4, 1)};
  bytes values;
  ASSERT_EQ(session.read(back, values), 1);
  EXPECT_EQ(values, (bytes{0x34, 0x12}));
}

TEST_F(Access, SplitReplyIsDecodedFromItsFirstPieceAndPoisonsTheNext) {
  plcsim::faults f;
  f.split_reply_to = static_cast<int>(plc.request_count() + 1);
  f.split_pause_ms = 300;
  plc.set_faults(f);
  std::vector<read_comm> text{item("Name", 255, string_type, 16)};
  bytes values;
  ASSERT_EQ(session.read(text, values), 1);
  EXPECT_EQ(values, memory(60, 3));  // 26-byte reply cut at 13: three value bytes
  std::vector<read_comm> counter{item("Counter", 2, 4, 1)};
  EXPECT_EQ(session.read(counter, values), 0);  // the leftover is taken as this reply
  EXPECT_EQ(session.state, unity_process::state_failed);
}

TEST(Faults, TruncatedFileHandleReplyAbortsBrowse) {
  plcsim::server plc(plant());
  ASSERT_TRUE(plc.start_on_free_loopback());
  unity_process session;
  ASSERT_EQ(session.setup_device(plc.address().c_str(), plc.port(), 100), 1);
  ASSERT_TRUE(session.initial_device());
  session.get_data_type_list();
  session.get_data_type_detail();
  plcsim::faults f;
  f.truncate_reply_to = static_cast<int>(plc.request_count() + 2);  // one table page, then it
  f.truncate_to = 16;
  plc.set_faults(f);
  EXPECT_THROW(session.browse(), std::out_of_range);
}

}  // namespace
