// Dictionary download against a scripted peer: paging, resends, state changes and
// failure paths.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/unity/session_fixture.h"
#include "wire/byte_cursor.h"

namespace {

void put_name(bytes& b, const std::string& name) {
  wire::le_writer(b).append(name.begin(), name.end()).u8(0);
}

bytes type_list_page(const bytes& r, uint32_t continuation,
                     const std::vector<std::pair<uint16_t, std::string>>& types) {
  bytes payload;
  wire::le_writer(payload).u32(continuation).u16(static_cast<uint16_t>(types.size()));
  payload.resize(11, 0);
  for (const auto& t : types) {
    wire::le_writer(payload).u16(t.first);
    put_name(payload, t.second);
    payload.insert(payload.end(), 5, 0);
  }
  return harness::ok_reply(r, payload);
}

class Dictionary : public Session {
 protected:
  void SetUp() override {
    session.state = unity_process::state_identified;
    session.dictionary_handle = dictionary_handle;
  }
};

TEST_F(Dictionary, DataTypeListFollowsContinuationAndResendsWhenSilent) {
  scripted_peer peer([](const bytes& r, std::size_t index, bool&) {
    if (index == 0) return bytes{};  // silent once: the same request comes again
    if (index == 1) return type_list_page(r, 0x0107, {{40, "MOTOR"}});
    return type_list_page(r, 0, {{41, "LINE"}, {42, "STRING[16]"}});
  });
  connect(peer);
  session.get_data_type_list();
  const auto requests = peer.requests();
  ASSERT_EQ(requests.size(), 3u);
  EXPECT_EQ(requests[0], requests[1]);
  EXPECT_EQ(transaction_of(requests[1]), 1);
  EXPECT_EQ(transaction_of(requests[2]), 2);
  EXPECT_EQ(bytes(requests[2].end() - 4, requests[2].end()), (bytes{0x07, 0x01, 0x00, 0x00}));
  EXPECT_EQ(session.transaction_counter, 3);
  ASSERT_EQ(session.data_types.size(), 3u);
  EXPECT_EQ(session.data_types.at(40).name, std::string("MOTOR") + '\0');
  EXPECT_EQ(session.data_types.at(42).name, std::string("STRING[16]") + '\0');
}

TEST_F(Dictionary, DataTypeListEndsWhenTheControllerDropsTheConnection) {
  // Pins the endless resend loop: a closed connection must end it, not spin.
  scripted_peer peer([](const bytes&, std::size_t, bool& close) {
    close = true;
    return bytes{};
  });
  connect(peer);
  session.get_data_type_list();
  EXPECT_GE(peer.requests().size(), 1u);
  EXPECT_EQ(session.transaction_counter, 1);
}

TEST_F(Dictionary, DataTypeListAfterStopSendsNothing) {
  scripted_peer peer([](const bytes& r, std::size_t, bool&) { return type_list_page(r, 0, {}); });
  connect(peer);
  session.data_types[1] = data_type{};
  session.stop();
  session.get_data_type_list();
  EXPECT_TRUE(session.data_types.empty());
  EXPECT_TRUE(peer.requests().empty());
}

bytes structure_page(const bytes& r, uint16_t continuation,
                     const std::vector<std::pair<uint16_t, std::string>>& members) {
  bytes payload{0x02};
  wire::le_writer(payload).u16(continuation).u16(0).u16(static_cast<uint16_t>(members.size()));
  uint32_t offset = 0;
  for (const auto& m : members) {
    wire::le_writer(payload).u16(m.first).u32(offset);
    offset += 2;
    put_name(payload, m.second);
  }
  return harness::ok_reply(r, payload);
}

TEST_F(Dictionary, DetailPagesStructuresCopiesArrayMembersAndMarksStrings) {
  session.data_types[10].name = std::string("MOTOR") + '\0';
  session.data_types[11].name = std::string("LINE") + '\0';
  session.data_types[12].name = std::string("STRING[16]") + '\0';
  session.transaction_counter = 20;
  scripted_peer peer([](const bytes& r, std::size_t, bool&) {
    const bytes m = message_of(r);
    const uint16_t type = static_cast<uint16_t>(m[9] | m[10] << 8);
    const uint16_t continuation = static_cast<uint16_t>(m[11] | m[12] << 8);
    if (type == 10 && continuation == 0) return structure_page(r, 0x0005, {{4, "Speed"}});
    if (type == 10 && continuation == 5) return structure_page(r, 0x0009, {{4, "Current"}});
    if (type == 10) return structure_page(r, 0, {{1, "Running"}});
    if (type == 11) {
      bytes payload{0x04, 10, 0x00, 0x01, 1, 0, 0, 0, 4, 0, 0, 0};
      return harness::ok_reply(r, payload);
    }
    return harness::refused_reply(r);  // 11 bytes in all
  });
  connect(peer);
  session.get_data_type_detail();
  const auto requests = peer.requests();
  ASSERT_EQ(requests.size(), 5u);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(transaction_of(requests[i]), 20) << i;
  EXPECT_EQ(transaction_of(requests[3]), 21);
  EXPECT_EQ(transaction_of(requests[4]), 22);
  EXPECT_EQ(session.transaction_counter, 23);
  const auto& motor = session.struct_members.at(10);
  ASSERT_EQ(motor.size(), 3u);
  EXPECT_EQ(motor[0].name, std::string("Speed") + '\0');
  EXPECT_EQ(motor[2].name, std::string("Running") + '\0');
  ASSERT_EQ(session.struct_members.count(11), 1u);
  EXPECT_EQ(session.struct_members.at(11).size(), 3u);
  EXPECT_EQ(session.data_types.at(11).element_type, 10);
  EXPECT_EQ(session.data_types.at(12).element_type, 9);
  EXPECT_EQ(session.data_types.at(10).element_type, 0);
}

bytes table_page(const bytes& r, uint32_t next,
                 const std::vector<std::pair<uint16_t, std::string>>& variables) {
  bytes payload{0x09};
  wire::le_writer(payload).u32(next).u16(static_cast<uint16_t>(variables.size()));
  uint32_t offset = 0x100;
  for (const auto& v : variables) {
    wire::le_writer(payload).u16(v.first).u16(1).u32(offset).u16(0);
    offset += 4;
    put_name(payload, v.second);
  }
  return harness::ok_reply(r, payload);
}

bool is_browse(const bytes& r) {
  const bytes m = message_of(r);
  return m.size() == 15 && m[1] == 0x26 && m[9] == 0xFF && m[10] == 0xFF;
}

TEST_F(Dictionary, BrowsePagesTableThenFetchesFileHandle) {
  session.transaction_counter = 50;
  scripted_peer peer([](const bytes& r, std::size_t index, bool&) {
    if (!is_browse(r)) {
      bytes payload(6, 0);
      wire::le_writer(payload).u32(0x00ABCDEF);  // at buffer byte 16
      return harness::ok_reply(r, payload);
    }
    if (index == 0) return table_page(r, 0x0A0B0C0D, {{4, "Counter"}});
    return table_page(r, 0, {{8, "Speed"}});
  });
  connect(peer);
  EXPECT_TRUE(session.browse());
  EXPECT_EQ(session.state, unity_process::state_ready);
  const auto requests = peer.requests();
  ASSERT_EQ(requests.size(), 3u);
  EXPECT_EQ(bytes(requests[1].end() - 4, requests[1].end()), (bytes{0x0D, 0x0C, 0x0B, 0x0A}));
  EXPECT_EQ(transaction_of(requests[2]), 52);
  EXPECT_FALSE(is_browse(requests[2]));
  EXPECT_EQ(session.table_address, 0x00ABCDEFu);
  EXPECT_EQ(session.transaction_counter, 53);
  EXPECT_EQ(session.tables.size(), 2u);
  EXPECT_EQ(session.tables.count(std::string("Counter") + '\0'), 1u);
}

TEST_F(Dictionary, BrowseOnBmeP58SkipsFileHandle) {
  session.plc_type = "BME P58 4040";
  scripted_peer peer([](const bytes& r, std::size_t, bool&) { return table_page(r, 0, {}); });
  connect(peer);
  EXPECT_TRUE(session.browse());
  EXPECT_EQ(peer.requests().size(), 1u);
  EXPECT_EQ(session.state, unity_process::state_ready);
}

TEST_F(Dictionary, BrowseErrorReplyLeavesStateAndFails) {
  scripted_peer peer([](const bytes& r, std::size_t, bool&) { return harness::refused_reply(r); });
  connect(peer);
  EXPECT_FALSE(session.browse());
  EXPECT_EQ(session.state, unity_process::state_identified);
  EXPECT_EQ(peer.requests().size(), 1u);
}

TEST_F(Dictionary, BrowseOutsideIdentifiedStateOnlyFetchesFileHandle) {
  session.state = unity_process::state_connecting;
  scripted_peer peer(
      [](const bytes& r, std::size_t, bool&) { return harness::ok_reply(r, bytes(10, 0)); });
  connect(peer);
  EXPECT_TRUE(session.browse());
  EXPECT_EQ(session.state, unity_process::state_ready);
  const auto requests = peer.requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(message_of(requests[0])[1], 0x22);
}

}  // namespace
