#include <gtest/gtest.h>
#include <sys/socket.h>

#include <boost/shared_ptr.hpp>

#include "net/server_socket.h"
#include "unity/unity_process.h"

namespace {

using bytes = std::vector<unsigned char>;

// A listener on a loopback port of its own, and a session connected to it.
class SessionTransport : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(server.listenToClient(0, 1, true));
    orm::SocketAddress bound;
    ASSERT_TRUE(server.getSocketAddress(&bound));
    port = ntohs(bound.get().sin_port);
    ASSERT_EQ(session.setup_device("127.0.0.1", port, 1000), 1);
    ASSERT_EQ(server.selectRead(2000), 1);
    peer = server.acceptClient();
    ASSERT_TRUE(peer);
  }

  orm::ServerSocket server;
  unsigned short port = 0;
  unity_process session;
  boost::shared_ptr<orm::ClientSocket> peer;
};

TEST_F(SessionTransport, LongReplyIsCutAt2048) {
  const bytes big(3000, 0x33);
  ASSERT_EQ(::send(peer->descriptor(), big.data(), big.size(), 0), 3000);
  // The first read may see less than all of it, but never more than 2048 bytes.
  const bytes got = session.client_recv();
  EXPECT_GT(got.size(), 0u);
  EXPECT_LE(got.size(), 2048u);
}

TEST_F(SessionTransport, StopResetsCounterAndDisconnects) {
  session.transaction_counter = 12;
  session.stop();
  EXPECT_EQ(session.transaction_counter, 1);
  EXPECT_EQ(session.socket.descriptor(), -1);
  char c = 0;
  ASSERT_EQ(peer->selectRead(2000), 1);
  EXPECT_EQ(::recv(peer->descriptor(), &c, 1, 0), 0);  // orderly shutdown seen by the peer
  // A stopped session can connect again.
  EXPECT_EQ(session.setup_device("127.0.0.1", port, 1000), 1);
}

}  // namespace
