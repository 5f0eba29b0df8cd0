// Whole identification and dictionary download against the simulator: the example
// project and large generated ones, for M340 and "BME P58" type texts.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/loopback_peer.h"
#include "tools/plcsim/plcsim.h"
#include "unity/unity_process.h"
#include "wire/byte_cursor.h"

namespace {

// Runs a session through the whole initialisation, in the order the driver's handshake uses.
bool download_dictionary(unity_process& session, const plcsim::server& plc) {
  if (session.setup_device(plc.address().c_str(), plc.port(), 100) == 0) return false;
  if (!session.initial_device()) return false;
  session.get_data_type_list();
  session.get_data_type_detail();
  return session.browse() && session.state == unity_process::state_ready;
}

std::string key(const std::string& name) {
  return name + '\0';
}

// The block and byte offset of a table entry's location.
void location_of(const table& t, uint16_t& block, uint32_t& offset) {
  wire::le_reader r(t.location);
  block = r.u16();
  offset = r.u32();
}

// Every derived type, member list and variable of the project is in the session.
void expect_dictionary_matches(const unity_process& session, const plcsim::project& p) {
  ASSERT_EQ(session.tables.size(), p.variables.size());
  for (const plcsim::variable& v : p.variables) {
    auto found = session.tables.find(key(v.name));
    ASSERT_NE(found, session.tables.end()) << v.name;
    uint16_t block = 0;
    uint32_t offset = 0;
    location_of(found->second, block, offset);
    EXPECT_EQ(block, v.block) << v.name;
    EXPECT_EQ(offset, v.offset) << v.name;
    EXPECT_EQ(found->second.type_id, v.type) << v.name;
  }
  ASSERT_EQ(session.data_types.size(), p.types.size());
  for (const auto& [id, t] : p.types) {
    const data_type& got = session.data_types.at(id);
    EXPECT_EQ(got.name, key(t.name)) << t.name;
    if (t.kind == "string") {
      EXPECT_EQ(got.element_type, 9) << t.name;
    }
    if (t.kind == "array") {
      EXPECT_EQ(got.element_type, t.element_type) << t.name;
      EXPECT_EQ(got.bounds.size(), 8 * t.dimensions.size()) << t.name;
    }
    if (t.kind == "struct") {
      const auto& members = session.struct_members.at(id);
      ASSERT_EQ(members.size(), t.members.size()) << t.name;
      for (std::size_t m = 0; m < members.size(); ++m)
        EXPECT_EQ(members[m].name, key(t.members[m].name)) << t.name;
    }
  }
}

struct project_case {
  const char* what;
  std::size_t variables;
  std::size_t struct_types;
  bool m580;
};
void PrintTo(const project_case& c, std::ostream* os) {
  *os << c.what;
}

class GeneratedProject : public ::testing::TestWithParam<project_case> {};

TEST_P(GeneratedProject, DownloadsWholeDictionary) {
  const project_case c = GetParam();
  plcsim::server plc(plcsim::generate_project(c.variables, c.struct_types, c.m580));
  ASSERT_TRUE(plc.start_on_free_loopback());
  unity_process session;
  ASSERT_TRUE(download_dictionary(session, plc));
  EXPECT_EQ(session.plc_type, plc.loaded_project().plc_type);
  EXPECT_EQ(session.is_bme_p58(), c.m580);
  EXPECT_EQ(session.table_address, plc.table_address());
  expect_dictionary_matches(session, plc.loaded_project());
}

INSTANTIATE_TEST_SUITE_P(Sizes, GeneratedProject,
                         ::testing::Values(project_case{"small M340", 300, 20, false},
                                           project_case{"small BME P58", 300, 20, true},
                                           project_case{"large M340", 50000, 2000, false},
                                           project_case{"large BME P58", 50000, 2000, true}),
                         [](const ::testing::TestParamInfo<project_case>& info) {
                           std::string name = info.param.what;
                           for (char& ch : name)
                             if (ch == ' ') ch = '_';
                           return name;
                         });

TEST(ExampleProject, RestartAfterStopNumbersFromOne) {
  plcsim::server plc(plcsim::generate_project(50, 5, false));
  ASSERT_TRUE(plc.start_on_free_loopback());
  unity_process session;
  ASSERT_TRUE(download_dictionary(session, plc));
  session.stop();
  EXPECT_EQ(session.transaction_counter, 1);
  ASSERT_EQ(session.setup_device(plc.address().c_str(), plc.port(), 100), 1);
  ASSERT_TRUE(session.initial_device());
  EXPECT_EQ(session.transaction_counter, 12);
  EXPECT_EQ(plc.connection_count(), 2u);
}

// Every request a session sends, in order, from the first to its first read, through a
// peer that passes each on to the simulator: the transaction ids count 1, 2, 3, ... with
// none left out or used twice.
TEST(ExampleProject, EveryRequestUpToTheFirstReadTakesTheNextTransactionId) {
  plcsim::server plc(plcsim::load_project_file(UNITYDRV_SOURCE_DIR "/examples/plant.json"));
  ASSERT_TRUE(plc.start_on_free_loopback());
  harness::relay_peer relay(plc.address(), plc.port());
  unity_process session;
  ASSERT_EQ(session.setup_device("127.0.0.1", relay.port(), 1000), 1);
  ASSERT_TRUE(session.initial_device());
  session.get_data_type_list();
  session.get_data_type_detail();
  ASSERT_TRUE(session.browse());
  read_comm counter;  // examples/plant.json: Counter, an INT at block 1, offset 96
  counter.location = {1, 0, 96, 0, 0, 0};
  counter.count = 1;
  counter.read_format = 2;
  counter.type_id = 4;
  std::vector<read_comm> items = {counter};
  std::vector<unsigned char> values;
  ASSERT_EQ(session.read(items, values), 1);
  EXPECT_EQ(values, (std::vector<unsigned char>{0xD6, 0xFF}));
  const auto requests = relay.requests();
  ASSERT_GT(requests.size(), 14u);
  EXPECT_EQ(harness::message_of(requests.back())[1], 0x22);
  for (std::size_t i = 0; i < requests.size(); ++i) {
    EXPECT_EQ(harness::transaction_of(requests[i]), i + 1) << "request " << i + 1;
  }
}

// Identification run twice without stop() numbers on from 12, where no step has a
// message: the empty request's MBAP length (0) cannot hold a unit id and function code,
// and the controller drops the connection, so the step ends at once without reply.
TEST(ExampleProject, EmptyRequestOfASecondIdentificationDropsTheConnection) {
  plcsim::server plc(plcsim::generate_project(10, 1, false));
  ASSERT_TRUE(plc.start_on_free_loopback());
  unity_process session;
  ASSERT_EQ(session.setup_device(plc.address().c_str(), plc.port(), 100), 1);
  ASSERT_TRUE(session.initial_device());
  EXPECT_FALSE(session.initial_device());
  EXPECT_EQ(session.transaction_counter, 13);
  EXPECT_EQ(plc.request_count(), 11u);
  char c = 0;
  EXPECT_EQ(::recv(session.socket.descriptor(), &c, 1, MSG_DONTWAIT), 0);  // closed by the peer
}

}  // namespace
