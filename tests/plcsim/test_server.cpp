#include <gtest/gtest.h>

#include "plcsim/sim_client.h"

using simtest::bytes;
using simtest::hex;

namespace {

using server = simtest::served_plant;

TEST_F(server, EchoesTransactionAndUnitAndSetsLength) {
  bytes req = simtest::adu(0xBEEF, hex("00 07 01 1A 00 00"));
  req[6] = 0x11;
  ASSERT_TRUE(c->send(req));
  EXPECT_EQ(c->recv_frame(), hex("BEEF 0000 0004 11 5A 00FE"));
}

TEST_F(server, NonUnityFunctionGetsModbusException) {
  ASSERT_TRUE(c->send(hex("0001 0000 0006 00 03 0000 0001")));
  EXPECT_EQ(c->recv_frame(), hex("0001 0000 0003 00 83 01"));
}

TEST_F(server, AnswersRequestsArrivingInOneSegment) {
  bytes two = simtest::adu(1, hex("00 07"));
  bytes second = simtest::adu(2, hex("00 07"));
  two.insert(two.end(), second.begin(), second.end());
  ASSERT_TRUE(c->send(two));
  EXPECT_EQ(c->recv_frame(), hex("0001 0000 0004 00 5A 00FE"));
  EXPECT_EQ(c->recv_frame(), hex("0002 0000 0004 00 5A 00FE"));
}

TEST(server_clients, ServesSeveralClientsAtOnce) {
  auto srv = simtest::started(simtest::plant());
  ASSERT_TRUE(srv);
  std::vector<std::unique_ptr<simtest::client>> clients;
  for (int i = 0; i < 4; ++i) clients.push_back(std::make_unique<simtest::client>(*srv));
  for (auto& c : clients) ASSERT_TRUE(c->send(simtest::adu(5, hex("00 07"))));
  for (auto& c : clients) EXPECT_EQ(c->recv_frame().size(), 10u);
  EXPECT_EQ(srv->connection_count(), 4u);
  EXPECT_EQ(srv->request_count(), 4u);
}

TEST_F(server, StopClosesOpenConnections) {
  ASSERT_EQ(c->exchange(hex("00 07")), hex("00 FE"));
  srv->stop();
  EXPECT_TRUE(c->closed_by_peer(2000));
}

TEST_F(server, SecondServerCannotTakeTheSameAddress) {
  plcsim::server other(simtest::plant());
  EXPECT_FALSE(other.start(srv->address(), srv->port()));
}

TEST_F(server, MemoryWrittenByTheTestIsServed) {
  srv->write_memory(7, 10, {1, 2, 3});
  EXPECT_EQ(srv->read_memory(7, 9, 5), hex("00 01 02 03 00"));
  EXPECT_EQ(c->exchange(hex("00 20 00 07 00 0A 00 00 00 03 00")), hex("00 FE 00 0300 010203"));
}

}  // namespace
