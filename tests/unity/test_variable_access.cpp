// Variable reads and writes against a scripted peer: outcomes, state changes and the
// request kept between calls.
#include <gtest/gtest.h>

#include <vector>

#include "tests/unity/session_fixture.h"

namespace {

class Access : public Session {
 protected:
  void SetUp() override {
    session.state = unity_process::state_ready;
    session.transaction_counter = 7;
  }
  static std::vector<read_comm> one_int() {
    read_comm item;
    item.read_format = 2;
    item.type_id = 4;
    item.count = 1;
    item.data = {0x34, 0x12};
    return {item};
  }
};

TEST_F(Access, ReadReturnsValueBytesAndAdvances) {
  scripted_peer peer([](const bytes& r, std::size_t, bool&) {
    return harness::ok_reply(r, {0x2A, 0x00, 0x05});
  });
  connect(peer);
  session.state = unity_process::state_write_ok;
  std::vector<read_comm> items = one_int();
  std::vector<unsigned char> values;
  EXPECT_EQ(session.read(items, values), 1);
  EXPECT_EQ(values, (bytes{0x2A, 0x00, 0x05}));
  EXPECT_EQ(session.state, unity_process::state_read_ok);
  EXPECT_EQ(session.transaction_counter, 8);
  EXPECT_EQ(transaction_of(peer.requests().at(0)), 7);
}

// A request built in place in the session's kept buffer carried over bytes of a longer one.
TEST_F(Access, ReadSendsTheBuiltRequestAlsoAfterALongerOne) {
  scripted_peer peer([](const bytes& r, std::size_t, bool&) {
    return harness::ok_reply(r, {0x2A, 0x00});
  });
  connect(peer);
  std::vector<read_comm> three(3, one_int()[0]);
  three[1].location = {0x02, 0x00, 0x10, 0x20, 0x30, 0x00};
  three[2].read_format = 255;
  std::vector<read_comm> one = one_int();
  std::vector<unsigned char> values;
  ASSERT_EQ(session.read(three, values), 1);
  ASSERT_EQ(session.read(one, values), 1);
  ASSERT_EQ(peer.requests().size(), 2u);
  EXPECT_EQ(peer.requests()[1],
            harness::hex("0008 0000 0010 00 5A 00 22 00000000 01 02 0000 01 0000 00"));
}

// The kept receive buffer let a reply too short for its status byte read stale bytes.
TEST_F(Access, ReadReplyWithoutStatusByteThrows) {
  int replies = 0;
  scripted_peer peer([&replies](const bytes& r, std::size_t, bool&) {
    return replies++ == 0 ? harness::ok_reply(r, {0x2A, 0x00}) : bytes(r.begin(), r.begin() + 9);
  });
  connect(peer);
  std::vector<read_comm> items = one_int();
  std::vector<unsigned char> values;
  ASSERT_EQ(session.read(items, values), 1);
  EXPECT_THROW(session.read(items, values), std::out_of_range);
}

TEST_F(Access, ReadFailures) {
  scripted_peer peer([](const bytes& r, std::size_t, bool&) { return harness::refused_reply(r); });
  connect(peer);
  std::vector<unsigned char> values;
  std::vector<read_comm> too_many(256, one_int()[0]);
  EXPECT_EQ(session.read(too_many, values), 0);
  EXPECT_EQ(session.state, unity_process::state_ready);
  EXPECT_TRUE(peer.requests().empty());

  std::vector<read_comm> items = one_int();
  EXPECT_EQ(session.read(items, values), 0);
  EXPECT_EQ(session.state, unity_process::state_failed);
  EXPECT_EQ(session.transaction_counter, 7);
  EXPECT_EQ(peer.requests().size(), 1u);

  EXPECT_EQ(session.read(items, values), 0);  // state 9: not ready, nothing sent
  EXPECT_EQ(session.state, unity_process::state_failed);
  EXPECT_EQ(peer.requests().size(), 1u);
}

TEST_F(Access, WriteOutcomes) {
  scripted_peer peer([](const bytes& r, std::size_t index, bool&) {
    if (index == 0) return harness::ok_reply(r, {0x01});
    if (index == 1) return harness::refused_reply(r);
    if (index == 2) return harness::ok_reply(r, {0x00});
    return bytes{};
  });
  connect(peer);
  EXPECT_EQ(session.write(one_int()), 1);
  EXPECT_EQ(session.state, unity_process::state_write_ok);
  EXPECT_EQ(session.transaction_counter, 8);

  EXPECT_EQ(session.write(one_int()), 0);  // refused: counted, state kept
  EXPECT_EQ(session.state, unity_process::state_ready);
  EXPECT_EQ(session.transaction_counter, 9);

  EXPECT_EQ(session.write(one_int()), 0);  // accepted without the success flag
  EXPECT_EQ(session.transaction_counter, 10);

  EXPECT_EQ(session.write(one_int()), 0);  // silent
  EXPECT_EQ(session.state, unity_process::state_write_no_reply);
  EXPECT_EQ(session.transaction_counter, 10);

  EXPECT_EQ(session.write(one_int()), 0);  // state 8 is not ready: nothing sent
  EXPECT_EQ(peer.requests().size(), 4u);
  EXPECT_EQ(session.state, unity_process::state_write_no_reply);
}

TEST_F(Access, WriteSuccessReplyWithoutFlagByteThrows) {
  scripted_peer peer([](const bytes& r, std::size_t, bool&) { return harness::ok_reply(r, {}); });
  connect(peer);
  EXPECT_THROW(session.write(one_int()), std::out_of_range);
}

}  // namespace
