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

TEST_F(Dictionary, BrowseErrorReplyLeavesStateAndFails) {
  scripted_peer peer([](const bytes& r, std::size_t, bool&) { return harness::refused_reply(r); });
  connect(peer);
  EXPECT_FALSE(session.browse());
  EXPECT_EQ(session.state, unity_process::state_identified);
  EXPECT_EQ(peer.requests().size(), 1u);
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
