#include <gtest/gtest.h>

#include "plcsim/sim_client.h"

using simtest::bytes;
using simtest::hex;

namespace {

const bytes identify = hex("00 02");
constexpr std::size_t identify_reply_size = 8 + 46;

class faults : public simtest::served_plant {
 protected:
  bool ask(uint16_t transaction) { return c->send(simtest::adu(transaction, identify)); }
};

TEST_F(faults, NoReplySkipsExactlyThatRequest) {
  plcsim::faults f;
  f.no_reply_to = 2;
  srv->set_faults(f);
  ASSERT_TRUE(ask(1));
  EXPECT_EQ(c->recv_frame().size(), identify_reply_size);
  ASSERT_TRUE(ask(2));
  EXPECT_TRUE(c->recv_frame(300).empty());
  ASSERT_TRUE(ask(3));
  bytes third = c->recv_frame();
  ASSERT_EQ(third.size(), identify_reply_size);
  EXPECT_EQ(third[1], 3);
  EXPECT_EQ(srv->request_count(), 3u);
}

TEST_F(faults, DelayedReplyStillArrivesWhole) {
  plcsim::faults f;
  f.delay_reply_to = 1;
  f.delay_ms = 100;
  srv->set_faults(f);
  ASSERT_TRUE(ask(1));
  EXPECT_EQ(c->recv_frame().size(), identify_reply_size);
}

TEST_F(faults, SplitReplyComesInTwoPieces) {
  plcsim::faults f;
  f.split_reply_to = 1;
  f.split_pause_ms = 300;
  srv->set_faults(f);
  ASSERT_TRUE(ask(1));
  bytes first = c->recv_once(2000);
  ASSERT_FALSE(first.empty());
  EXPECT_LT(first.size(), identify_reply_size);
  bytes rest = c->recv_once(2000);
  EXPECT_EQ(first.size() + rest.size(), identify_reply_size);
}

TEST_F(faults, ErrorFunctionRefusesOnlyThatFunction) {
  plcsim::faults f;
  f.error_function = 0x02;
  srv->set_faults(f);
  EXPECT_EQ(c->exchange(identify).at(1), 0xFD);
  EXPECT_EQ(c->exchange(hex("00 04")).at(1), 0xFE);
}

TEST_F(faults, CloseAfterAnswersThenClosesThisAndLaterConnections) {
  plcsim::faults f;
  f.close_after = 2;
  srv->set_faults(f);
  EXPECT_EQ(c->exchange(identify).size(), identify_reply_size - 8);
  EXPECT_EQ(c->exchange(identify).size(), identify_reply_size - 8);
  EXPECT_TRUE(c->closed_by_peer(2000));
  simtest::client later(*srv);
  ASSERT_TRUE(later.connected());
  ASSERT_TRUE(later.send(simtest::adu(1, identify)));
  EXPECT_TRUE(later.closed_by_peer(2000));
}

TEST_F(faults, TruncatedReplyIsCutAndNextReplyIsWhole) {
  plcsim::faults f;
  f.truncate_reply_to = 1;
  f.truncate_to = 9;
  srv->set_faults(f);
  ASSERT_TRUE(ask(1));
  EXPECT_EQ(c->recv_once(2000).size(), 9u);
  ASSERT_TRUE(ask(2));
  EXPECT_EQ(c->recv_frame().size(), identify_reply_size);
}

}  // namespace
