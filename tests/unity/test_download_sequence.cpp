// Dictionary download against a scripted peer: paging, resends, state changes and
// failure paths.
#include <gtest/gtest.h>

#include <stdexcept>
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

// One page of a structure's detail: a single INT member, and the continuation (0: last).
bytes structure_page(const bytes& r, uint16_t continuation, const std::string& member) {
  return harness::modbus_reply(
      harness::dictionary_reply(2, continuation, 1).le16(4).le32(2).le16(0).cstr(member).bytes(),
      transaction_of(r));
}

// Type 40 gets no reply: nothing decoded, the counter not stepped. Type 41's structure
// takes three replies: one transaction id for all three, the counter stepped once.
TEST_F(Dictionary, TypeDetailStepsTheCounterOncePerAnsweredType) {
  scripted_peer peer([](const bytes& r, std::size_t index, bool&) {
    const uint16_t continuation[] = {0, 0x0101, 0x0202, 0};
    if (index == 0) return bytes{};
    return structure_page(r, continuation[index % 4], std::string(1, char('A' + index)));
  });
  connect(peer);
  session.data_types[40] = data_type{};
  session.data_types[41] = data_type{};
  session.transaction_counter = 7;
  session.get_data_type_detail();
  const auto requests = peer.requests();
  ASSERT_EQ(requests.size(), 4u);
  for (const bytes& r : requests) EXPECT_EQ(transaction_of(r), 7);
  EXPECT_EQ(message_of(requests[2])[11], 0x01);
  EXPECT_EQ(message_of(requests[3])[11], 0x02);
  EXPECT_EQ(session.transaction_counter, 8);
  EXPECT_EQ(session.struct_members.count(40), 0u);
  ASSERT_EQ(session.struct_members.at(41).size(), 3u);
  EXPECT_EQ(session.struct_members.at(41)[2].name, std::string("D") + '\0');
}

// A continuation that gets no reply is decoded all the same, and an empty reply is refused
// by the framing.
TEST_F(Dictionary, StructureContinuationWithoutReplyRaises) {
  scripted_peer peer([](const bytes& r, std::size_t index, bool&) {
    return index == 0 ? structure_page(r, 0x0101, "A") : bytes{};
  });
  connect(peer);
  session.data_types[40] = data_type{};
  EXPECT_THROW(session.get_data_type_detail(), std::out_of_range);
  EXPECT_EQ(peer.requests().size(), 2u);
}

TEST_F(Dictionary, DataTypeListEndsWhenTheControllerDropsTheConnection) {
  // Pins the endless resend loop: a closed connection must end it, not spin.
  scripted_peer peer([](const bytes&, std::size_t, bool& close) {
    close = true;
    return bytes{};
  });
  connect(peer);
  session.data_types[1] = data_type{};  // emptied first
  session.get_data_type_list();
  EXPECT_GE(peer.requests().size(), 1u);
  EXPECT_EQ(session.transaction_counter, 1);
  EXPECT_TRUE(session.data_types.empty());
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
